/* Loaded before the C library: ends the program after so many changes of a file, by pwrite or ftruncate. A pwrite writes at
 * most 1000 bytes. The environment variable INTERRUPT_AFTER says how many. So a test sees what a program leaves that is
 * killed while it writes. */
#define _GNU_SOURCE
#include <signal.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

static void count(void)
{
    static long done;
    const char* const after = getenv("INTERRUPT_AFTER");
    if (after != NULL && ++done >= atol(after)) {
        kill(getpid(), SIGKILL);
    }
}

ssize_t pwrite(int file, const void* bytes, size_t size, off_t offset)
{
    const ssize_t result = syscall(SYS_pwrite64, file, bytes, size < 1000 ? size : 1000, offset);
    count();
    return result;
}

int ftruncate(int file, off_t size)
{
    const int result = (int)syscall(SYS_ftruncate, file, size);
    count();
    return result;
}

ssize_t pwrite64(int file, const void* bytes, size_t size, off64_t offset) { return pwrite(file, bytes, size, offset); }
int ftruncate64(int file, off64_t size) { return ftruncate(file, size); }
