// SPDX-License-Identifier: Apache-2.0
// Files and a standard output that are whole or a fault.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace common
{

// A file that appears as a whole or not at all: it is written under a temporary name beside its
// target, and commit() renames it. Without commit() the target stays as it was. Several outputs
// are best all written before the first is committed. A target that is no regular file, such as
// /dev/stdout, is written at once.
class OutputFile
{
  public:
    // Throws std::runtime_error, naming `option` as the way to choose another place.
    OutputFile(std::filesystem::path target, std::string_view contents, std::string option);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    void commit();

  private:
    [[noreturn]] void fail(int error);

    std::filesystem::path target;
    std::string temporary; // empty if nothing is left to rename
    std::string option;
};

// Throws std::runtime_error if two of the files are one, links and spellings apart.
void requireDistinct(const std::vector<std::filesystem::path> &files);

// To be called at the end: what was printed may not have arrived. Throws std::runtime_error.
void finishStandardOutput();

} // namespace common
