#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes the costs in docs/solvers.md, between its two marks, from the figures of a run.

    bench/solvers.py                          from docs/benchmarks.json
    bench/solvers.py --json FILE              from the figures that run.py --json wrote
"""

import argparse
import json
import re
from pathlib import Path

DOCS = Path(__file__).resolve().parent.parent / "docs"
BEGIN, END = "<!-- costs: written by bench/solvers.py -->\n", "<!-- end of costs -->\n"
SIZES = range(3, 7)

# The operations that a column adds up: each system with a matrix of its own, one matrix for all.
OWN = {
    "LU": ("zonmLUDecomp_ma", "zonmLUBackSubst_mava"),
    "Cholesky": ("zonmCholeskyDecomp_ma", "zonmCholeskyBackSubst_mava"),
    "QR": ("zonmQRDecomp_ma", "zonmQRBackSubst_mava"),
}
SHARED = {
    "LU": "zonmLUBackSubst_mva",
    "Cholesky": "zonmCholeskyBackSubst_mva",
    "QR": "zonmQRBackSubst_mva",
}
WHOLE = {"determinant": "zonmDet_ma", "inverse": "zonmInvert_ma"}


def line(cells):
    return "| " + " | ".join(cells) + " |\n"


def table(data):
    measured = {(operation, type_, size): times["zonm"][0]
                for _, operation, type_, size, _, times in data["rows"] if "zonm" in times}

    def cell(type_, size, *operations):
        times = [measured.get((operation, type_, size)) for operation in operations]
        if None in times:
            return ""
        return f"{sum(times):.3g}"

    heads = ["", "N"]
    heads += list(OWN) + [f"{name}, `mva`" for name in SHARED]
    heads += list(WHOLE)
    text = line(heads) + line(["---", "---:"] + ["---:"] * (len(heads) - 2))
    for type_ in ("64f", "32f"):
        for size in SIZES:
            cells = [type_ if size == SIZES[0] else "", str(size)]
            cells += [cell(type_, size, *operations) for operations in OWN.values()]
            cells += [cell(type_, size, operation) for operation in SHARED.values()]
            cells += [cell(type_, size, operation) for operation in WHOLE.values()]
            text += line(cells)
    processor = re.split(r", \d+ cores", data["machine"])[0]
    return f"{text}\n{processor}, {data['compiler']}, {data['date']}.\n"


def renew(page, data):
    """Gives the page the costs that `data` has."""
    before, rest = page.read_text().split(BEGIN)
    _, behind = rest.split(END)
    page.write_text(f"{before}{BEGIN}\n{table(data)}\n{END}{behind}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--json", type=Path, default=DOCS / "benchmarks.json")
    renew(DOCS / "solvers.md", json.loads(parser.parse_args().json.read_text()))


if __name__ == "__main__":
    main()
