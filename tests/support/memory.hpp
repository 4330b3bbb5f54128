// SPDX-License-Identifier: Apache-2.0
// Whole pages between two pages without access, filled with a pattern and watched byte by byte.
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
    ~Memory();
    Memory(const Memory &) = delete;
    Memory &operator=(const Memory &) = delete;

    std::byte *begin() const { return first; }
    std::byte *end() const { return first + size; }

    void protect(int protection) const; // as mprotect takes it

    // Remembers every byte; `isUntouched` and `firstTouched` compare with what was remembered.
    void remember() { before.assign(begin(), end()); }
    bool isUntouched(const std::byte *p, std::size_t bytes) const;
    const std::byte *remembered(const std::byte *p) const { return before.data() + (p - first); }
    // The bytes that may change: the elements of an output.
    void release(const std::byte *p, std::size_t bytes);
    // Null, or the first changed byte among those that were not released.
    const std::byte *firstTouched() const;

  private:
    std::size_t size;
    std::byte *first;
    std::vector<std::byte> before;
    std::vector<bool> released;
};

} // namespace test
