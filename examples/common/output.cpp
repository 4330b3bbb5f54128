// SPDX-License-Identifier: Apache-2.0
#include "common/output.hpp"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>

namespace common
{
namespace
{

namespace fs = std::filesystem;

// 0, or the error's number.
int writeAndClose(int descriptor, std::string_view contents)
{
    int error = 0;
    while (!contents.empty() && error == 0) {
        const ssize_t written = write(descriptor, contents.data(), contents.size());
        if (written >= 0)
            contents.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            error = errno;
    }
    if (close(descriptor) != 0 && error == 0)
        error = errno;
    return error;
}

// What a file gets that is created in the usual way.
mode_t usualMode()
{
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

} // namespace

OutputFile::OutputFile(fs::path path, std::string_view contents, std::string optionName)
    : target(std::move(path)), option(std::move(optionName))
{
    std::error_code unknown;
    if (fs::is_symlink(target, unknown)) // the link stays, the file behind it is replaced
        if (const auto real = fs::weakly_canonical(target, unknown); !unknown)
            target = real;
    struct stat old {
    };
    const bool exists = stat(target.c_str(), &old) == 0;
    if (exists && !S_ISREG(old.st_mode)) {
        const int descriptor = open(target.c_str(), O_WRONLY);
        if (const int error = descriptor < 0 ? errno : writeAndClose(descriptor, contents))
            fail(error);
        return;
    }
    if (exists && access(target.c_str(), W_OK) != 0) // a rename would not ask
        fail(errno);
    temporary = target.string() + ".XXXXXX";
    const int descriptor = mkstemp(temporary.data());
    if (descriptor < 0) {
        const int error = errno;
        temporary.clear();
        fail(error);
    }
    fchmod(descriptor, exists ? old.st_mode & 07777 : usualMode());
    if (const int error = writeAndClose(descriptor, contents))
        fail(error);
}

OutputFile::~OutputFile()
{
    if (!temporary.empty())
        unlink(temporary.c_str());
}

void OutputFile::commit()
{
    if (temporary.empty())
        return;
    if (rename(temporary.c_str(), target.c_str()) != 0)
        fail(errno);
    temporary.clear();
}

void OutputFile::fail(int error)
{
    if (!temporary.empty())
        unlink(temporary.c_str());
    throw std::runtime_error("cannot write '" + target.string() + "': " + std::strerror(error) +
                             "; choose another place with " + option);
}

void requireDistinct(const std::vector<fs::path> &files)
{
    for (std::size_t i = 0; i < files.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            std::error_code unknown;
            const bool special = fs::exists(files[i], unknown) &&
                                 !fs::is_regular_file(files[i], unknown); // such as /dev/null
            if (!special && (fs::equivalent(files[i], files[j], unknown) ||
                             fs::weakly_canonical(fs::absolute(files[i])) ==
                                 fs::weakly_canonical(fs::absolute(files[j]))))
                throw std::runtime_error(
                    "'" + files[i].string() +
                    "' is given twice, and one would "
                    "overwrite the other; choose another place for the output");
        }
    }
}

void finishStandardOutput()
{
    errno = 0;
    if (std::cout.flush())
        return;
    throw std::runtime_error(std::string("cannot write to the standard output") +
                             (errno ? std::string(": ") + std::strerror(errno) : ""));
}

} // namespace common
