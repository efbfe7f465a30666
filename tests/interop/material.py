"""The inputs of the interop tests: the samples, files that installed media tools make, and the tool's output."""

import csv
import functools
import io
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

LXAVI, SAMPLES = sys.argv[1], pathlib.Path(sys.argv[2])
SCRATCH = tempfile.TemporaryDirectory(prefix="lxavi-interop-")

FFMPEG_FILES = {
    "mpeg4_ac3.avi": "-c:v mpeg4 -g 12 -bf 0 -c:a ac3 -b:a 96k",
    "mjpeg_mp2.avi": "-c:v mjpeg -q:v 9 -c:a mp2 -b:a 64k",
    "h264_mp3.avi": "-c:v libx264 -preset ultrafast -g 30 -bf 0 -c:a libmp3lame -b:a 64k",
    "mpeg4_vbr.avi": "-c:v mpeg4 -g 25 -bf 0 -c:a libmp3lame -q:a 4",
    "mpeg4_two.avi": "-map 0:v -map 1:a -map 1:a -c:v mpeg4 -g 9 -bf 0 -c:a:0 pcm_s16le -c:a:1 aac",
    "raw_pcm.avi": "-c:v rawvideo -pix_fmt bgr24 -s 32x24 -c:a pcm_u8",
    "dv_pcm.avi": "-c:v dvvideo -s 720x576 -pix_fmt yuv420p -frames:v 25 -c:a pcm_s16le",
}
GSTREAMER_FILE = ("videotestsrc num-buffers=50 ! video/x-raw,width=64,height=48,framerate=25/1 ! jpegenc ! avimux name=m "
                  "! filesink location={} audiotestsrc num-buffers=20 samplesperbuffer=1600 "
                  "! audio/x-raw,format=S16LE,rate=16000,channels=2 ! m.")


class InScratchFolder(unittest.TestCase):
    """Each test has a folder of its own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="lxavi-test-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def file(self, data, name="file.avi"):
        path = self.folder / name
        path.write_bytes(data)
        return path


def lxavi(*arguments, **options):
    return subprocess.run([LXAVI, *map(str, arguments)], capture_output=True, text=True, check=False, **options)


def is_seekable(path):
    return lxavi("seek", path, "0").returncode == 0


def track_option(track):
    """The first track is the standard, also of a file that has none."""
    return ("--audio", str(track)) if track else ()


def run(*arguments):
    return subprocess.run(arguments, check=True, capture_output=True, text=True).stdout


def rows(command, path, *options):
    return list(csv.DictReader(io.StringIO(run(LXAVI, command, str(path), "--csv", *options))))


@functools.cache
def made_files():
    """Makes files with the installed media tools. A missing tool makes no file."""
    folder, files = pathlib.Path(SCRATCH.name), []
    if shutil.which("ffmpeg"):
        for name, codec in FFMPEG_FILES.items():
            subprocess.run(["ffmpeg", "-hide_banner", "-loglevel", "error", "-f", "lavfi", "-i",
                            "testsrc=size=96x64:rate=25:duration=4", "-f", "lavfi", "-i",
                            "sine=sample_rate=48000:duration=4", *codec.split(), str(folder / name)], check=True)
            files.append(folder / name)
    if shutil.which("gst-launch-1.0"):
        path = folder / "gstreamer.avi"
        if subprocess.run(["gst-launch-1.0", "-q", *GSTREAMER_FILE.format(path).split()],
                          capture_output=True, check=False).returncode == 0:
            files.append(path)
    return files


def large_file():
    """Makes a file of more than 1 GiB with a media tool: OpenDML, with several RIFF lists. The caller removes it."""
    path = pathlib.Path(SCRATCH.name) / "large.avi"
    subprocess.run(["ffmpeg", "-hide_banner", "-loglevel", "error", "-f", "lavfi", "-i",
                    "color=c=red:size=1280x720:rate=25", "-f", "lavfi", "-i", "sine=sample_rate=48000", "-frames:v",
                    "450", "-shortest", "-c:v", "rawvideo", "-pix_fmt", "bgr24", "-c:a", "pcm_s16le", str(path)],
                   check=True)
    return path


def has_room_for_a_large_file():
    return shutil.which("ffmpeg") is not None and shutil.disk_usage(SCRATCH.name).free > 4 << 30


def corpus():
    """The files by many writers in the folder that the environment names, if it names one."""
    folder = os.environ.get("LXAVI_CORPUS")
    return sorted(pathlib.Path(folder).glob("*.[aA][vV][iI]")) if folder else []
