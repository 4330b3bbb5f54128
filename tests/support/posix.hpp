// SPDX-License-Identifier: Apache-2.0
// What the tests take from POSIX: pages, shared libraries, the program's name. On Windows as much
// of it as they use, in windows.cpp.
#pragma once

#include <string>

#if !defined(_WIN32)

#include <cerrno>
#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

inline std::string programName() { return program_invocation_short_name; }

#else

#include <csignal>
#include <cstddef>
#include <unistd.h>

std::string programName();

inline constexpr int SIGBUS = SIGSEGV; // there is no other fault

enum { PROT_NONE = 0, PROT_READ = 1, PROT_WRITE = 2 };
enum { MAP_PRIVATE = 2, MAP_ANONYMOUS = 32, MAP_NORESERVE = 0x4000 };
enum { _SC_PAGESIZE = 30 };
inline void *const MAP_FAILED = reinterpret_cast<void *>(-1);
void *mmap(void *, std::size_t bytes, int protection, int flags, int, long);
int munmap(void *, std::size_t bytes);
int mprotect(void *, std::size_t bytes, int protection);
long sysconf(int);

enum { RTLD_NOW = 2, RTLD_LOCAL = 0, RTLD_NOLOAD = 4, RTLD_GLOBAL = 0x100 };
inline void *const RTLD_DEFAULT = nullptr;
void *dlopen(const char *file, int mode);
void *dlsym(void *library, const char *name);
int dlclose(void *library);
const char *dlerror();

#endif
