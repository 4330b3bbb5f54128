// SPDX-License-Identifier: Apache-2.0
// Whole pages between pages without access, filled with a pattern and watched byte by byte.
#pragma once

#include <cstddef>
#include <vector>

namespace test
{

class Memory
{
  public:
    enum class Place { start, end, anywhere }; // flush with a guard page, or neither

    explicit Memory(std::size_t bytes);
    // Only the pages with elements can be accessed: `elements` are offsets, each of `elementBytes`.
    Memory(std::size_t bytes, const std::vector<std::ptrdiff_t> &elements, int elementBytes);
    ~Memory();
    Memory(const Memory &) = delete;
    Memory &operator=(const Memory &) = delete;

    static std::ptrdiff_t pageBytes();

    std::byte *begin() const { return first; }
    std::byte *end() const { return first + size; }

    void protect(int protection) const; // as mprotect takes it

    // All bytes that can be accessed, in ascending order.
    std::vector<std::byte> contents() const;
    void restore(const std::vector<std::byte> &contents) const;

    // Remembers every byte; `isUntouched` and `firstTouched` compare with what was remembered.
    void remember() { before = contents(); }
    bool isUntouched(const std::byte *p, std::size_t bytes) const;
    bool isUntouched() const { return contents() == before; }
    const std::byte *remembered(const std::byte *p) const { return before.data() + index(p); }
    // The bytes that may change: the elements of an output.
    void release(const std::byte *p, std::size_t bytes);
    // Null, or the first changed byte among those that were not released.
    const std::byte *firstTouched() const;

  private:
    struct Run { // of pages, with the place of its first byte among the contents
        std::size_t offset, bytes, index;
    };

    std::size_t size;
    std::byte *first;
    std::vector<Run> runs;
    std::vector<std::byte> before;
    std::vector<bool> released;

    void open();
    std::size_t index(const std::byte *) const;
};

} // namespace test
