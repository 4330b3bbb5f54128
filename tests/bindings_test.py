#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""zonm.json holds to its schema and suffices for bindings.

Bindings are made here from zonm.json alone: memory of exactly the stated shapes and lengths, with guards
around it, and a call of every export. A status of the list has to come back, guards and
sources stay as they were, and on success every element of each described output is written.
"""

import argparse
import ctypes
import functools
import json
import operator
import random
import re
import sys
from pathlib import Path

import jsonschema

ROOT = Path(__file__).resolve().parent.parent
GUARD = 4096  # bytes in front of and behind each piece of memory
GUARD_BYTE = 0xA5
SCALARS = {"int32_t": ctypes.c_int32, "float": ctypes.c_float, "double": ctypes.c_double}
FAULTS = []


def fault(text):
    FAULTS.append(text)


def value_of(expression, sizes):
    return eval(expression, {"__builtins__": {}}, dict(sizes))


class Memory:
    """Bytes between guards."""

    def __init__(self, size):
        self.size = size
        self.raw = (ctypes.c_uint8 * (size + 2 * GUARD)).from_buffer(bytearray([GUARD_BYTE] * (size + 2 * GUARD)))
        self.address = ctypes.addressof(self.raw) + GUARD

    def scalars(self, ctype):
        return (ctype * (self.size // ctypes.sizeof(ctype))).from_address(self.address)

    def guarded(self):
        intact, raw = bytes([GUARD_BYTE]) * GUARD, self.bytes()
        return raw[:GUARD] == intact and raw[-GUARD:] == intact

    def bytes(self):
        return bytes(self.raw)


class Call:
    """One call of an export on dense memory."""

    def __init__(self, export, grammar, sizes):
        self.export, self.grammar = export, grammar
        self.ctype = SCALARS[grammar["elements"][export["element"]]["type"]]
        self.element = ctypes.sizeof(self.ctype)
        self.sizes = sizes
        self.memory, self.outputs, self.keep = {}, [], []
        self.arguments = {}
        for operand in export["operands"]:
            self.lay(operand)
        for argument in export["arguments"]:
            self.add_plain(argument)

    def extents(self, operand):
        shape = operand["shape"]
        if operand["kind"] == "matrix":
            return value_of(shape["rows"], self.sizes), value_of(shape["columns"], self.sizes)
        return (1, value_of(shape["len"], self.sizes)) if operand["kind"] == "vector" else (1, 1)

    def fill(self, memory):
        values = memory.scalars(self.ctype)
        for i in range(len(values)):
            values[i] = random.uniform(1, 2)
        return values

    def lay(self, operand):
        """Memory and the arguments of a described operand."""
        name = operand["name"]
        if operand["kind"] == "constant" and not operand["array"]:
            return
        rows, columns = self.extents(operand)
        objects = self.sizes.get("count", 1) if operand["array"] else 1
        memory = self.memory[name] = Memory(objects * rows * columns * self.element)
        values = self.fill(memory)
        if operand["kind"] == "matrix" and rows == columns:
            for k in range(objects):  # a strong diagonal: positive definite and regular
                for i in range(rows):
                    values[(k * rows + i) * columns + i] += 4 * rows
                    for j in range(i):
                        values[(k * rows + i) * columns + j] = values[(k * rows + j) * columns + i]
        if operand["output"]:
            self.outputs.append(name)
            for i in range(len(values)):
                values[i] = float("nan")
        row, matrix = columns * self.element, rows * columns * self.element
        table = []
        if operand["description"] == "L" and operand["array"]:
            table = [memory.address + k * matrix for k in range(objects)]
        elif operand["description"] == "P" and operand["kind"] != "constant":
            table = [memory.address + i * self.element for i in range(rows * columns)]
        pointers = (ctypes.c_void_p * len(table))(*table)
        self.keep.append(pointers)
        by_role = {"pointer": memory.address, "table": ctypes.addressof(pointers), "shift": 0,
                   "stride0": matrix, "stride1": row, "stride2": self.element}
        for argument in self.export["arguments"]:
            if argument["operand"] == name and argument["role"] in by_role:
                self.arguments[argument["name"]] = by_role[argument["role"]]

    def add_plain(self, argument):
        name, role = argument["name"], argument["role"]
        if name in self.arguments:
            return
        if "length" in argument:
            number = value_of(argument["length"]["expression"], self.sizes)
            pointee = argument["type"].replace("const", "").replace("*", "").strip()
            unit = 1 if argument["length"]["unit"] == "bytes" else ctypes.sizeof(SCALARS[pointee])
            stride = f"{name}Stride0"
            objects = self.sizes.get("count", 1) if any(a["name"] == stride for a in self.export["arguments"]) else 1
            memory = self.memory[name] = Memory(number * unit * objects)
            self.arguments[name] = memory.address
            self.arguments[stride] = number * unit
            if pointee in ("float", "double"):
                self.fill(memory)
            elif pointee == "int32_t":  # pivots: rows in order for each matrix
                values = memory.scalars(ctypes.c_int32)
                for i in range(len(values)):
                    values[i] = i % self.sizes.get("size", 1)
        elif role in ("width", "height", "len", "order", "count"):
            self.arguments[name] = self.sizes[name]
        elif role == "value":
            self.arguments[name] = 1.5

    def run(self, library):
        export, before = self.export, {name: m.bytes() for name, m in self.memory.items()}
        converted = []
        for a in export["arguments"]:
            scalar = SCALARS.get(a["type"], ctypes.c_void_p)
            converted.append(scalar(self.arguments[a["name"]]))
        function = getattr(library, export["name"])
        function.restype = ctypes.c_int32
        status = function(*converted)
        names = {s["value"]: s["name"] for s in self.grammar["statuses"]}
        where = f"{export['name']} {self.sizes}"
        if names.get(status) not in export["statuses"]:
            fault(f"{where}: status {status} is not in the list")
        constant = [a["name"] for a in export["arguments"] if a["type"].startswith("const") and a["name"] in self.memory]
        for name, memory in self.memory.items():
            if not memory.guarded():
                fault(f"{where}: wrote in front of or behind {name}")
            if name in constant and memory.bytes() != before[name]:
                fault(f"{where}: changed {name}")
        if status == 0 and not self.partly_written():
            for name in self.outputs:
                if any(v != v for v in self.memory[name].scalars(self.ctype)):
                    fault(f"{where}: {name} is not written as a whole")
        return status

    def partly_written(self):  # the upper triangle stays as it was
        return self.export["family"] == "cholesky_decomp"


def sizes_for(export, grammar):
    """Some calls: every size argument a value of its own, made to fit where shapes are checked."""
    names = [a["name"] for a in export["arguments"] if a["role"] in ("width", "height", "len", "order")]
    condition = " and ".join(c["condition"].replace("&&", "and") for c in export["checks"] if "condition" in c)
    many = any(a["role"] == "count" for a in export["arguments"])
    found = 0
    while found < 4:
        sizes = {name: random.choice((1, 2, 3, 4, 5, 7)) for name in names}
        if found == 0:
            sizes = {name: 3 for name in names}
        if condition and not value_of(condition, sizes):
            continue
        if export["name"] in ("zonmMul_mm_32f_P", "zonmMul_tt_64f_P") and \
                functools.reduce(operator.or_, sizes.values()) == 3 and set(sizes.values()) != {3}:
            continue  # taken for 3x3 by these two, as the header says
        found += 1
        yield sizes | ({"count": 3} if many else {})


def check_version(library, grammar):
    pointer = ctypes.sizeof(ctypes.c_void_p) * 8
    query = library.zonmGetLibVersion
    query.restype = ctypes.c_void_p
    base, record = query(), {}
    for field in grammar["versionRecord"]:
        at = base + field[f"offset{pointer}"]
        if field["type"] == "int32_t":
            record[field["name"]] = ctypes.c_int32.from_address(at).value
        elif field["type"] == "char[4]":
            record[field["name"]] = ctypes.string_at(at, 4)
        else:
            record[field["name"]] = ctypes.c_char_p.from_address(at).value
    version = ".".join(str(record[part]) for part in ("major", "minor", "patch"))
    if version != grammar["version"] or record["targetTag"] != b"px\0\0" or \
            record["versionText"] != f"{version} (r{record['revision']})".encode() or b"px" not in record["versionName"] \
            or not re.fullmatch(rb"[A-Z][a-z]{2} \d\d \d{4}", record["buildDate"]):
        fault(f"the version record does not read as stated: {record}")


def check_references(grammar):
    """What a schema cannot say: every name that is used is stated."""
    statuses = {s["name"] for s in grammar["statuses"]}
    families = {f["key"]: f for f in grammar["families"]}
    header = (ROOT / "include" / "zonm.h").read_text()
    for s in grammar["statuses"]:
        if not re.search(rf"\b{s['name']} = {s['value']}\b", header):
            fault(f"{s['name']} has another value in the header")
    for family in families.values():
        members = [e for e in grammar["exports"] if e["family"] == family["key"]]
        if not members:
            fault(f"family {family['key']} has no exports")
        for limit in family["limits"]:
            if limit["outcome"].startswith("zonSts") and limit["outcome"] not in statuses:
                fault(f"{family['key']}: no status {limit['outcome']}")
            if "forms" in limit and not any(re.fullmatch(limit["forms"], e["name"]) for e in members):
                fault(f"{family['key']}: no export is called like {limit['forms']}")
        kernel = {s for e in members for s in e["statuses"]} - {c["status"] for e in members for c in e["checks"]}
        for status in kernel - {"zonStsOk"} - {"zonStsBlockSingular"}:
            if all(limit["outcome"] != status for limit in family["limits"]):
                fault(f"{family['key']}: {status} without a limit")
    for e in grammar["exports"]:
        if not set(e["statuses"]) <= statuses or e["family"] not in families:
            fault(f"{e['name']}: unknown family or status")
        names = {a["name"] for a in e["arguments"] if a["type"] == "int32_t"}
        expressions = [x for o in e["operands"] for x in o["shape"].values()]
        expressions += [a["length"]["expression"] for a in e["arguments"] if "length" in a]
        for expression in expressions:
            if not set(re.findall(r"[A-Za-z]\w*", expression)) <= names:
                fault(f"{e['name']}: '{expression}' names no argument")
        described = {o["name"] for o in e["operands"]}
        for a in e["arguments"]:
            if a["role"] == "pointer" and a["operand"] not in described and "length" not in a:
                fault(f"{e['name']}: no length of {a['name']}")


def report():
    for text in FAULTS[:50]:
        print("FAILED", text)
    sys.exit(bool(FAULTS))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--library", required=True)
    options = parser.parse_args()
    grammar = json.loads((ROOT / "zonm.json").read_text())
    schema = json.loads((ROOT / "zonm.schema.json").read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    for error in jsonschema.Draft202012Validator(schema).iter_errors(grammar):
        fault(f"schema: {'/'.join(map(str, error.absolute_path))}: {error.message[:200]}")
    if not FAULTS:
        check_references(grammar)
    if FAULTS:
        report()
    library = ctypes.CDLL(options.library)
    check_version(library, grammar)
    random.seed(1)
    calls = succeeded = 0
    for export in grammar["exports"]:
        if export["returns"] == "ZonStatus":
            for sizes in sizes_for(export, grammar):
                calls += 1
                succeeded += Call(export, grammar, sizes).run(library) == 0
    print(f"{calls} calls, {succeeded} with zonStsOk")
    if succeeded * 2 < calls:
        fault("most calls failed")
    report()


if __name__ == "__main__":
    main()
