// SPDX-License-Identifier: Apache-2.0
#include "support/operand.hpp"

#include <cstring>
#include <stdexcept>

namespace test
{

bool Operand::isUntouched(int k, int i, int j) const
{
    return memory->isUntouched(at(k, i, j), std::size_t(sizeOf(element)));
}

OperandForm::OperandForm(const Export &e, std::string_view operand)
{
    const ArgumentInfo *head = nullptr;
    for (const ArgumentInfo &a : e.arguments) {
        if (a.operand != operand)
            continue;
        if (a.role == "table" || a.role == "pointer")
            head = &a;
        block.table |= a.role == "table";
        block.shift |= a.role == "shift";
        block.stride0 |= a.role == "stride0";
        block.stride1 |= a.role == "stride1";
        block.stride2 |= a.role == "stride2";
    }
    if (!head)
        throw std::invalid_argument(e.name + " has no operand " + std::string(operand));
    if (const OperandInfo *o = e.operand(operand)) {
        block.transposed = o->transposed;
        block.constant = o->kind == "constant";
    }
    element = head->type.find("double") != std::string::npos  ? Element::f64
              : head->type.find("float") != std::string::npos ? Element::f32
                                                              : Element::i32;
}

Operand placed(const OperandForm &form, bool output, Layout layout, std::shared_ptr<Memory> memory,
               std::byte *base)
{
    Operand o{form.element, output, std::move(layout), base, std::move(memory), nullptr};
    if (form.block.table) {
        const std::size_t bytes = o.layout.table.size() * sizeof(void *);
        o.tableMemory = std::make_shared<Memory>(bytes);
        std::byte *entry = o.tableMemory->end() - bytes;
        for (const std::ptrdiff_t offset : o.layout.table) {
            const auto address = reinterpret_cast<std::uintptr_t>(base) + std::uintptr_t(offset) -
                                 std::uintptr_t(o.layout.shift);
            std::memcpy(entry, &address, sizeof address);
            entry += sizeof address;
        }
    }
    return o;
}

Argument argumentOf(const Operand &o, const ArgumentInfo &a)
{
    const Layout &l = o.layout;
    if (a.role == "pointer")
        return o.base;
    if (a.role == "table")
        return o.tableMemory->end() - l.table.size() * sizeof(void *);
    if (a.role == "shift")
        return l.shift;
    if (a.role == "stride0")
        return l.stride0;
    if (a.role == "stride1")
        return l.stride1;
    if (a.role == "stride2")
        return l.stride2;
    throw std::invalid_argument("an operand gives no argument " + a.name);
}

} // namespace test
