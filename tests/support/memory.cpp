// SPDX-License-Identifier: Apache-2.0
#include "support/memory.hpp"

#include <algorithm>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>

#include "support/posix.hpp"
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

std::size_t wholePages(std::size_t bytes)
{
    return (bytes + pageSize() - 1) / pageSize() * pageSize();
}

// Mappings of the same size serve one `Memory` after the other. Few are kept, and none in many
// pieces: the system counts the pieces of a process.
std::multimap<std::size_t, std::byte *> unused;
constexpr std::size_t largestKept = std::size_t(1) << 24, mostKept = 256, mostRuns = 16;

// Its pages may be open or closed.
std::byte *map(std::size_t size)
{
    if (const auto it = unused.find(size); it != unused.end())
        return unused.extract(it).mapped();
    void *p = mmap(nullptr, size + 2 * pageSize(), PROT_NONE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p == MAP_FAILED)
        throw std::runtime_error("no " + std::to_string(size) + " bytes of address space");
    return static_cast<std::byte *>(p) + pageSize();
}

void unmap(std::byte *p, std::size_t size, std::size_t runs)
{
    if (size <= largestKept && runs <= mostRuns && unused.size() < mostKept)
        unused.emplace(size, p);
    else
        munmap(p - pageSize(), size + 2 * pageSize());
}

} // namespace

std::ptrdiff_t Memory::pageBytes() { return std::ptrdiff_t(pageSize()); }

Memory::Memory(std::size_t bytes) : size(wholePages(bytes)), first(map(size)), runs{{0, size, 0}}
{
    open();
}

Memory::Memory(std::size_t bytes, const std::vector<std::ptrdiff_t> &elements, int elementBytes)
    : size(wholePages(bytes)), first(map(size))
{
    if (mprotect(first, size, PROT_NONE) != 0)
        throw std::runtime_error("mprotect: " + std::string(std::strerror(errno)));
    std::vector<std::size_t> pages;
    for (const std::ptrdiff_t e : elements)
        for (const std::ptrdiff_t byte : {e, e + elementBytes - 1})
            pages.push_back(std::size_t(byte) / pageSize());
    std::ranges::sort(pages);
    for (const std::size_t page : pages) {
        const std::size_t offset = page * pageSize();
        if (runs.empty() || offset > runs.back().offset + runs.back().bytes)
            runs.push_back(
                {offset, pageSize(), runs.empty() ? 0 : runs.back().index + runs.back().bytes});
        else
            runs.back().bytes = offset + pageSize() - runs.back().offset;
    }
    open();
}

Memory::~Memory() { unmap(first, size, runs.size()); }

void Memory::open()
{
    protect(PROT_READ | PROT_WRITE);
    Random pattern(size);
    for (const Run &run : runs)
        for (std::size_t i = 0; i < run.bytes; i += sizeof(std::uint64_t)) {
            const std::uint64_t word = pattern.bits();
            std::memcpy(first + run.offset + i, &word, sizeof word);
        }
    released.resize(runs.back().index + runs.back().bytes);
}

void Memory::protect(int protection) const
{
    for (const Run &run : runs)
        if (mprotect(first + run.offset, run.bytes, protection) != 0)
            throw std::runtime_error("mprotect: " + std::string(std::strerror(errno)));
}

std::vector<std::byte> Memory::contents() const
{
    std::vector<std::byte> all;
    all.reserve(released.size());
    for (const Run &run : runs)
        all.insert(all.end(), first + run.offset, first + run.offset + run.bytes);
    return all;
}

void Memory::restore(const std::vector<std::byte> &contents) const
{
    for (const Run &run : runs)
        std::memcpy(first + run.offset, contents.data() + run.index, run.bytes);
}

std::size_t Memory::index(const std::byte *p) const
{
    const auto offset = std::size_t(p - first);
    const auto behind = std::ranges::upper_bound(runs, offset, {}, &Run::offset);
    const Run &run = behind[-1];
    return run.index + (offset - run.offset);
}

bool Memory::isUntouched(const std::byte *p, std::size_t bytes) const
{
    return std::memcmp(p, remembered(p), bytes) == 0;
}

void Memory::release(const std::byte *p, std::size_t bytes)
{
    std::fill_n(released.begin() + std::ptrdiff_t(index(p)), bytes, true);
}

const std::byte *Memory::firstTouched() const
{
    for (const Run &run : runs)
        if (std::memcmp(first + run.offset, &before[run.index], run.bytes) != 0)
            for (std::size_t i = 0; i < run.bytes; ++i)
                if (first[run.offset + i] != before[run.index + i] && !released[run.index + i])
                    return first + run.offset + i;
    return nullptr;
}

} // namespace test
