// SPDX-License-Identifier: Apache-2.0
#include "support/memory.hpp"

#include <cstring>
#include <map>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

#include "support/values.hpp"

namespace test
{
namespace
{

std::size_t pageSize()
{
    static const auto size = std::size_t(sysconf(_SC_PAGESIZE));
    return size;
}

// Mappings of the same size serve one `Memory` after the other.
std::multimap<std::size_t, std::byte *> unused;

std::byte *map(std::size_t size)
{
    if (const auto it = unused.find(size); it != unused.end())
        return unused.extract(it).mapped();
    void *p = mmap(nullptr, size + 2 * pageSize(), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED)
        throw std::bad_alloc();
    return static_cast<std::byte *>(p) + pageSize();
}

} // namespace

Memory::Memory(std::size_t bytes)
    : size((bytes + pageSize() - 1) / pageSize() * pageSize()), first(map(size))
{
    protect(PROT_READ | PROT_WRITE);
    Random pattern(size);
    for (std::size_t i = 0; i < size; i += sizeof(std::uint64_t)) {
        const std::uint64_t word = pattern.bits();
        std::memcpy(first + i, &word, sizeof word);
    }
    released.resize(size);
}

Memory::~Memory() { unused.emplace(size, first); }

void Memory::protect(int protection) const
{
    if (mprotect(first, size, protection) != 0)
        throw std::bad_alloc();
}

bool Memory::isUntouched(const std::byte *p, std::size_t bytes) const
{
    return std::memcmp(p, remembered(p), bytes) == 0;
}

void Memory::release(const std::byte *p, std::size_t bytes)
{
    for (std::size_t i = 0; i < bytes; ++i)
        released[std::size_t(p - first) + i] = true;
}

const std::byte *Memory::firstTouched() const
{
    for (std::size_t i = 0; i < size; ++i)
        if (first[i] != before[i] && !released[i])
            return first + i;
    return nullptr;
}

} // namespace test
