// SPDX-License-Identifier: Apache-2.0
#include "support/posix.hpp"

#include <algorithm>
#include <filesystem>
#include <windows.h>

std::string programName() { return std::filesystem::path(__argv[0]).stem().string(); }

// Pages ------------------------------------------------------------------------------------------

namespace
{

DWORD protectionOf(int protection)
{
    return protection & PROT_WRITE  ? PAGE_READWRITE
           : protection & PROT_READ ? PAGE_READONLY
                                    : PAGE_NOACCESS;
}

} // namespace

void *mmap(void *, std::size_t bytes, int protection, int, int, long)
{
    void *p = VirtualAlloc(nullptr, bytes, MEM_RESERVE, PAGE_NOACCESS);
    if (!p)
        return MAP_FAILED;
    if (mprotect(p, bytes, protection) == 0)
        return p;
    munmap(p, bytes);
    return MAP_FAILED;
}

int munmap(void *p, std::size_t) { return VirtualFree(p, 0, MEM_RELEASE) ? 0 : -1; }

// Address space becomes memory when its pages are opened first.
int mprotect(void *first, std::size_t bytes, int protection)
{
    const DWORD wanted = protectionOf(protection);
    auto *p = static_cast<std::byte *>(first), *const end = p + bytes;
    while (p < end) {
        MEMORY_BASIC_INFORMATION region;
        if (VirtualQuery(p, &region, sizeof region) == 0)
            return -1;
        auto *const behind = static_cast<std::byte *>(region.BaseAddress) + region.RegionSize;
        const auto size = std::size_t(std::min(behind, end) - p);
        DWORD before;
        const bool reserved = region.State == MEM_RESERVE;
        if (reserved && protection != PROT_NONE && !VirtualAlloc(p, size, MEM_COMMIT, wanted))
            return -1;
        if (!reserved && !VirtualProtect(p, size, wanted, &before))
            return -1;
        p += size;
    }
    return 0;
}

long sysconf(int)
{
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    return long(system.dwPageSize);
}

// Shared libraries -------------------------------------------------------------------------------

void *dlopen(const char *file, int mode)
{
    return mode & RTLD_NOLOAD ? GetModuleHandleA(file) : LoadLibraryA(file);
}

void *dlsym(void *library, const char *name)
{
    const HMODULE module = library ? static_cast<HMODULE>(library) : GetModuleHandleA(nullptr);
    return reinterpret_cast<void *>(GetProcAddress(module, name));
}

int dlclose(void *library) { return FreeLibrary(static_cast<HMODULE>(library)) ? 0 : -1; }

const char *dlerror()
{
    static std::string text;
    text = "error " + std::to_string(GetLastError());
    return text.c_str();
}
