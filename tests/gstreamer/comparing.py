#!/usr/bin/env python3
"""Makes files with an installed media tool, and compares what the plugin delivers of them, and of the samples, with what the
framework's own demultiplexer delivers. LXAVI_CORPUS names a folder with more files.

Usage: comparing.py GST_COMPARE SAMPLES [FOLDER]    FOLDER keeps the files that are made
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

COMPARE, SAMPLES = sys.argv[1], pathlib.Path(sys.argv[2])
SOURCES = "-f lavfi -i testsrc=size=96x64:rate=25:duration=4 -f lavfi -i sine=frequency=440:sample_rate=44100:duration=4"
FILES = {
    "mpeg4_bframes_ac3": "-c:v mpeg4 -g 12 -bf 2 -c:a ac3 -b:a 96k",
    "h264_bframes_mp3": "-c:v libx264 -preset ultrafast -g 30 -bf 2 -c:a libmp3lame -b:a 64k",
    "h264_pcm": "-c:v libx264 -preset ultrafast -g 25 -bf 0 -c:a pcm_s16le",
    "mjpeg_mp2": "-c:v mjpeg -q:v 9 -c:a mp2 -b:a 64k",
    "two_audios_aac": "-map 0:v -map 1:a -map 1:a -c:v mpeg4 -g 9 -bf 0 -c:a:0 pcm_s16le -c:a:1 aac",
    "two_videos": "-map 0:v -map 0:v -map 1:a -c:v mpeg4 -c:a pcm_s16le",
    "raw_rgb": "-c:v rawvideo -pix_fmt bgr24 -s 34x24 -c:a pcm_u8",
    "raw_yuv": "-c:v rawvideo -pix_fmt yuv420p -s 34x24 -c:a pcm_s24le",
    "raw_pal8": "-c:v rawvideo -pix_fmt pal8 -s 34x24 -c:a pcm_f32le",
    "raw_rgb555": "-c:v rawvideo -pix_fmt rgb555le -s 34x24 -c:a pcm_alaw",
    "dv_pcm": "-c:v dvvideo -s 720x576 -pix_fmt yuv420p -frames:v 25 -c:a pcm_s16le",
    "wide_adpcm_ima": "-c:v mpeg4 -g 25 -aspect 16:9 -c:a adpcm_ima_wav",
    "vp8_adpcm_ms": "-c:v libvpx -b:v 200k -c:a adpcm_ms",
    "ffv1_wmav2": "-c:v ffv1 -c:a wmav2",
    "wmv2_vbr": "-c:v wmv2 -c:a libmp3lame -q:a 4",
    "audio_alone": "-map 1:a -c:a libmp3lame",
    "tags": "-c:v mpeg4 -c:a pcm_s16le -metadata title=Film -metadata artist=Me",
}


def make(folder):
    for name, options in FILES.items():
        command = f"ffmpeg -v error -y {SOURCES} {options} {folder / name}.avi"
        if subprocess.run(command.split(), check=False, stdin=subprocess.DEVNULL).returncode != 0:
            (folder / f"{name}.avi").unlink(missing_ok=True)  # the media tool was built without that codec
    return sorted(folder.glob("*.avi"))


def main():
    corpus = pathlib.Path(os.environ["LXAVI_CORPUS"]).iterdir() if os.environ.get("LXAVI_CORPUS") else []
    found = sorted(path for path in corpus if path.suffix.lower() == ".avi")
    with tempfile.TemporaryDirectory(prefix="lxavi-comparing-") as scratch:
        folder = pathlib.Path(sys.argv[3] if len(sys.argv) > 3 else scratch)
        made = make(folder) if shutil.which("ffmpeg") else []
        files = sorted(SAMPLES.glob("*.avi")) + made + found
        status = subprocess.run([COMPARE, *map(str, files)], check=False).returncode
    print(f"{len(files)} files compared")
    sys.exit(status)


if __name__ == "__main__":
    main()
