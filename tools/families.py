# SPDX-License-Identifier: Apache-2.0
"""The families as the header presents them, and the functions that the built ones are bound to."""

from dataclasses import dataclass, field


@dataclass
class Family:
    title: str
    text: str
    subsystem: str = ""  # set where a new subsystem begins


@dataclass
class Built:
    folder: str
    functions: dict = field(default_factory=dict)  # operation -> C++ function that its entries call


# Adding a family: its file under src/<folder>/, its line here, and a run of generate.py.
BUILT = {
    "version": Built("frame"),
    "matrix_sums": Built("elementwise", {"zonmAdd": "addMatrices", "zonmSub": "subtractMatrices"}),
    "matrix_product": Built("products", {"zonmMul": "multiplyMatrices"}),
}

FAMILIES = {
    "version": Family("Library version", "zonmGetLibVersion returns the one constant version record.", "Frame"),
    "matrix_sums": Family("Matrix sums: zonmAdd, zonmSub", "dst(i, j) = src1(i, j) + src2(i, j)", "Element-wise"),
}
from manifest import EXPORTS
for e in EXPORTS:
    FAMILIES.setdefault(e.family, Family(e.family, e.family))
