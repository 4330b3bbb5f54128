// SPDX-License-Identifier: Apache-2.0
#include "support/invoke.hpp"

#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>

#include "support/posix.hpp"

namespace test
{
namespace
{

using Address = void (*)();

// One caller for each type of prototype.
struct Callee {
    Address address;
    ZonStatus (*call)(Address, std::span<const Argument>);
};

template <class... P> Callee callee(ZonStatus (*function)(P...))
{
    return {reinterpret_cast<Address>(function),
            [](Address address, std::span<const Argument> arguments) {
                if (arguments.size() != sizeof...(P))
                    throw std::invalid_argument("wrong number of arguments");
                return [&]<std::size_t... I>(std::index_sequence<I...>)
                {
                    return reinterpret_cast<ZonStatus (*)(P...)>(address)(arguments[I].as<P>()...);
                }
                (std::index_sequence_for<P...>());
            }};
}

const std::unordered_map<std::string_view, Callee> callees = {
#define ZONM_EXPORT(name) {#name, callee(name)},
#include "generated/exports.inc"
#undef ZONM_EXPORT
};

// The call under way, for the report of a fault.
thread_local char running[512];

extern "C" void reportFault(int signal)
{
    for (const char *text : {"\nfault in ", static_cast<const char *>(running), "\n"})
        if (write(STDERR_FILENO, text, std::strlen(text)) < 0)
            break;
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

const bool reporting = [] {
    for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE})
        std::signal(signal, reportFault);
    return true;
}();

} // namespace

ZonStatus invoke(std::string_view exportName, std::span<const Argument> arguments,
                 std::string_view description)
{
    const auto it = callees.find(exportName);
    if (it == callees.end())
        throw std::invalid_argument("no such export: " + std::string(exportName));
    const std::string_view text = description.empty() ? exportName : description;
    running[text.copy(running, sizeof running - 1)] = '\0';
    return it->second.call(it->second.address, arguments);
}

} // namespace test
