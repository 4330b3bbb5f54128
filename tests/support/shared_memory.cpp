// SPDX-License-Identifier: Apache-2.0
#include "support/shared_memory.hpp"

namespace test
{

MatrixIn SharedMemory::matrix(const Placement &p, int k)
{
    const auto address = [=, this](int i, int j) {
        return at(std::ptrdiff_t(p.base + k * p.stride0 + i * p.stride1 + j * p.stride2) *
                  sizeOf(element));
    };
    return {[=, this](int i, int j) { return load(element, address(i, j)); },
            [=, this](int i, int j, double value) { store(element, address(i, j), value); }};
}

VectorIn SharedMemory::vector(const Placement &p, int k)
{
    const MatrixIn m = matrix(p, k);
    return {[=](int i) { return m.get(0, i); }, [=](int i, double value) { m.set(0, i, value); }};
}

void SharedMemory::fill(Values values, std::uint64_t seed)
{
    Random random(seed);
    for (std::size_t offset = 0; offset < bytes.size(); offset += std::size_t(sizeOf(element)))
        store(element, at(std::ptrdiff_t(offset)), draw(values, element, random));
}

ZonStatus SharedMemory::run(const Export &e, const Placements &operands, int count,
                            const std::map<std::string, int, std::less<>> &sizes, void *buffer)
{
    const int size = sizeOf(element);
    std::map<std::string, std::vector<std::byte *>> tables;
    std::vector<Argument> arguments;
    for (const ArgumentInfo &a : e.arguments) {
        const auto found = operands.find(a.operand);
        if (found == operands.end()) {
            if (a.name == "buffer")
                arguments.push_back(buffer);
            else
                arguments.push_back(a.name == "count" ? count : sizes.at(a.name));
            continue;
        }
        const Placement &p = found->second;
        if (a.role == "pointer") {
            arguments.push_back(at(p.base * size));
        } else if (a.role == "table") {
            auto &table = tables[a.operand];
            if (e.description == "L")
                for (int k = 0; k < count; ++k)
                    table.push_back(at((p.base + k * p.stride0) * size));
            else
                for (int i = 0; i < p.shape.rows; ++i)
                    for (int j = 0; j < p.shape.columns; ++j)
                        table.push_back(at((p.base + i * p.stride1 + j * p.stride2) * size));
            arguments.push_back(table.data());
        } else {
            arguments.push_back(size * (a.role == "stride0"   ? p.stride0
                                        : a.role == "stride1" ? p.stride1
                                        : a.role == "stride2" ? p.stride2
                                                              : 0));
        }
    }
    return invoke(e.name, arguments);
}

} // namespace test
