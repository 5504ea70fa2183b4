// Replaceable functions: files and directories. See Interpose.h.
//
// GoogleTest prints through some of them: without a replacement everything passes, and a replacement stays no longer
// than the calls that it is about.
#ifndef KXPAL_TESTS_INTERPOSE_FILES_H
#define KXPAL_TESTS_INTERPOSE_FILES_H

#include <dirent.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include "Interpose.h"

#define KXPAL_INTERPOSE_FILES(X)                                                                                  \
    X(FILE*, fopen, (const char* path, const char* mode), (path, mode), )                                         \
    X(int, fclose, (FILE * stream), (stream), )                                                                   \
    X(size_t, fread, (void* data, size_t size, size_t count, FILE* stream), (data, size, count, stream), )        \
    X(size_t, fwrite, (const void* data, size_t size, size_t count, FILE* stream), (data, size, count, stream), ) \
    X(int, fseeko, (FILE * stream, off_t offset, int whence), (stream, offset, whence), )                         \
    X(off_t, ftello, (FILE * stream), (stream), )                                                                 \
    X(int, fileno, (FILE * stream), (stream), noexcept)                                                           \
    X(int, fflush, (FILE * stream), (stream), )                                                                   \
    X(int, ftruncate, (int fd, off_t length), (fd, length), noexcept)                                             \
    X(int, remove, (const char* path), (path), noexcept)                                                          \
    X(int, rename, (const char* from, const char* to), (from, to), noexcept)                                      \
    X(int, stat, (const char* path, struct ::stat* status), (path, status), noexcept)                             \
    X(int, utime, (const char* path, const utimbuf* times), (path, times), noexcept)                              \
    X(int, chmod, (const char* path, mode_t mode), (path, mode), noexcept)                                        \
    X(char*, getcwd, (char* buffer, size_t size), (buffer, size), noexcept)                                       \
    X(int, chdir, (const char* path), (path), noexcept)                                                           \
    X(int, mkdir, (const char* path, mode_t mode), (path, mode), noexcept)                                        \
    X(int, rmdir, (const char* path), (path), noexcept)                                                           \
    X(DIR*, opendir, (const char* path), (path), )                                                                \
    X(dirent*, readdir, (DIR * directory), (directory), )                                                         \
    X(int, closedir, (DIR * directory), (directory), )

namespace interpose {
KXPAL_INTERPOSE_FILES(KXPAL_INTERPOSE_DECLARE)
}  // namespace interpose

#endif
