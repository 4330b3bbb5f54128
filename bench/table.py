#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The pages of the benchmarks from the figures of a run: table.py FIGURES.json FOLDER

Writes benchmarks.md, one page to decide by, and benchmarks-tables.md with every figure.
"""

import json
import math
import sys
from pathlib import Path

OURS = ["zonm", "zonm _L", "zonm _P", "zonm, two threads"]
PEERS = ["Eigen", "Eigen by rows", "Eigen dynamic", "OpenBLAS", "LIBXSMM", "GLM", "GLM called", "GLM scalar",
         "cglm", "memcpy", "loop"]

WITHOUT_PEERS = {"scaling"}
GROUPS = {
    "sums": ("Matrix sums", """\
Dense rows. The last count of each size is beyond the caches. `zonmAdd_mm` is one call per object,
over as many objects as the count says; beside it, and at count 1, Eigen stands behind a function
call with run-time strides. Elsewhere it is fixed-size code over an array."""),
    "constants": ("Vector sums, sums and products with constants", """\
Dense rows. The last count of each size is beyond the caches. `zonmMul_mc` is one call per object; beside it,
Eigen stands behind a function call with run-time strides."""),
    "moves": ("Moves", """\
NxN matrices, dense rows. The last count of each size is beyond the caches. *Interleaved*: element (i, j) of all
matrices side by side. *loop*: two nested loops over the objects and their elements, compiled with the same flags.
`zonmTranspose_m` is one call per object; beside it, Eigen stands behind a function call with run-time strides."""),
    "product": ("Matrix product", """\
Square matrices, dense rows, operands within the second-level cache. *Limit*: the share of the
machine's rate of packed `64f` multiplications and additions, {limit} Gflop/s at the register width
of this build, that `zonm` reaches; it is the limit for `32f` too, whose products are formed in double.
OpenBLAS and LIBXSMM choose the widest registers of the processor and contract, whatever the build.
The peers multiply `32f` in single precision."""),
    "product_narrow": ("Matrix product, all at the width of the baseline", """\
As above, in a process of its own in which OpenBLAS and LIBXSMM keep to 16-byte registers."""),
    "vectors": ("Vectors, and matrices with vectors", """\
Dense rows, operands within the second-level cache. `zonmMul_mv`, `zonmDotProduct_vv` and `zonmSaxpy_vv` are one
call per object; beside them Eigen stands behind a function call with run-time strides. OpenBLAS takes one object
per call everywhere. The peers compute `32f` in single precision."""),
    "lu": ("LU decomposition and back substitution", """\
20000 different random matrices, one right-hand side for each; in `mva`, one matrix and 20000 right-hand
sides, which `Eigen dynamic` and OpenBLAS take as one matrix. Eigen keeps its matrices by columns, which suits
it best; `Eigen by rows` has them as zonm has. Beside the single forms, Eigen stands behind a function call
with run-time strides. LAPACK's copying of what it overwrites is timed."""),
    "cholesky": ("Cholesky decomposition and back substitution", """\
20000 different random positive definite matrices, one right-hand side for each; in `mva`, one matrix and
20000 right-hand sides. The peers as above."""),
    "qr": ("QR decomposition and back substitution", """\
20000 different random square matrices, one right-hand side for each; in `mva`, one matrix and 20000
right-hand sides. Of tall matrices there are 3000: N is the width, the name has the height. The peers as
above; OpenBLAS forms the reflections' product with the right-hand side, then solves with the triangle."""),
    "inverse": ("Determinant and inverse", """\
Random matrices, 20000 different ones at sizes 5 and 6, 2000 at the others. Beside the single forms, Eigen stands
behind a function call with run-time strides. OpenBLAS has no determinant: it is the product of the pivots of its
decomposition. LAPACK's copying of what it overwrites is timed."""),
    "eigen": ("Eigenproblems", """\
4000 different random matrices; the symmetric ones have norm near 1 and are positive definite, and the few of `32f`
that zonm refuses, its tolerances being absolute, are changed until it takes them. Eigen has a solver for each
matrix, which keeps what it computed; the vectors of its general one are not scaled to length 1, zonm's and
LAPACK's are. LAPACK's copying of what it overwrites is timed. Eigen has no left vectors."""),
    "graphics": ("Graphics kit", """\
2048 objects, within the second-level cache, and 100000. Names that end with `a` take all of them in one call, the
others one per call; beside these, `GLM called` stands behind a function call too, while the others are
inlined in the loop. zonm forms every result in double, the peers in single precision, so that half as many
numbers fit into zonm's registers. cglm has intrinsics. GLM is compiled without, and most of its products are
vectorised by the compiler; `GLM scalar` is the same with the compiler's vectorisers off."""),
    "scaling": ("From ten objects to a million", """\
Nanoseconds of elapsed time per object in calls on more and more of them, and with two threads that take half of the
array each, started and joined within the time. The caches end between 1000 and 100000 objects."""),
}


def geometric_mean(values):
    return math.exp(sum(map(math.log, values)) / len(values))


def number(value):
    return f"{value:.3g}" if value < 1000 else f"{value:.0f}"


def line(cells):
    return "| " + " | ".join(cells) + " |\n"


class Operation:
    """The rows of one operation in one element type; a figure is the least of the repetitions."""

    def __init__(self, name, type_, rows):
        self.name = name
        self.type = type_
        self.rows = [(size, count, {who: t[0] for who, t in times.items()})
                     for *_, size, count, times in rows]
        present = {who for *_, times in self.rows for who in times}
        self.ours = [who for who in OURS if who in present]
        self.peers = [who for who in PEERS if who in present]

    def ratios(self, who):
        """zonm's time over the contestant's."""
        return [times["zonm"] / times[who] for *_, times in self.rows if who in times]

    def table(self, limit):
        text = line(["N", "count"] + [w.replace("zonm _", "_") for w in self.ours] +
                    ["limit"] * bool(limit) + self.peers)
        text += line(["---:"] * (2 + len(self.ours) + bool(limit) + len(self.peers)))
        for size, count, times in self.rows:
            cells = [str(size), str(count)]
            cells += [number(times[w]) if w in times else "" for w in self.ours]
            if limit:
                cells.append(f"{200 * size**3 / times['zonm'] / limit:.0f} %")
            cells += [f"{number(times[w])} ({times['zonm'] / times[w]:.2f})" if w in times else ""
                      for w in self.peers]
            text += line(cells)
        foot = ["**mean**", "", ""]
        foot += [f"×{1 / geometric_mean(self.ratios(w)):.2f}" for w in self.ours[1:]]
        foot += [""] * bool(limit)
        foot += [f"**({geometric_mean(self.ratios(w)):.2f})**" for w in self.peers]
        return text + line(foot)


def operations(rows):
    """Calls on arrays of one object stand apart: they measure the call."""
    tables = {}
    for row in rows:
        _, name, type_, _, count, _ = row
        tables.setdefault((name + (", count 1" if count == 1 else ""), type_), []).append(row)
    return [Operation(*key, chosen) for key, chosen in sorted(tables.items())]


def summary(chosen):
    peers = [w for w in PEERS if any(w in o.peers for o in chosen)]
    text = line(["operation", "type"] + peers) + line(["---", "---"] + ["---:"] * len(peers))

    def means(ratios):
        return [f"{geometric_mean(r):.2f}" if r else "" for r in ratios]

    for o in chosen:
        text += line([f"`{o.name}`", o.type] + means(o.ratios(w) for w in peers))
    everything = means([r for o in chosen for r in o.ratios(w)] for w in peers)
    return text + line(["**all**", ""] + [f"**{m}**" if m else "" for m in everything])


def of_group(data, group):
    return operations([row for row in data["rows"] if row[0] == group])


def head(data):
    peers = "; ".join(f"{name}: {version}" for name, version in data["peers"].items())
    quick = "" if data["repetitions"] >= 9 else ", a quick run: the figures scatter"
    remarks = "".join(f"- **{remark}.**\n" for remark in data.get("remarks", []))
    return f"""<!-- SPDX-License-Identifier: Apache-2.0 -->
# Benchmarks

Made by `{data["command"]}` on {data["date"]}{quick}; not to be edited. [How they are made](../bench/README.md).

- Machine: {data["machine"]}
- Compiler: {data["compiler"]}, library and peers in source form with `{data["flags"]}`
- Peers: {peers}
{remarks}"""


def glance(data):
    """One line per group and type: the mean ratio to each peer over sizes and operations."""
    peers = [w for w in PEERS if any(w in times for row in data["rows"] for times in [row[5]])]
    text = line(["", ""] + peers) + line(["---", "---"] + ["---:"] * len(peers))
    for group, (title, _) in GROUPS.items():
        chosen = of_group(data, group)
        for type_ in ("64f", "32f"):
            ratios = [[r for o in chosen if o.type == type_ for r in o.ratios(w)] for w in peers]
            if group in WITHOUT_PEERS or not any(ratios):
                continue
            text += line([f"[{title}](#{anchor(title)})", type_] +
                         [f"{geometric_mean(r):.2f}" if r else "" for r in ratios])
    return text


def anchor(title):
    return "".join(c for c in title.lower().replace(" ", "-") if c.isalnum() or c == "-")


def behind(chosen):
    """The lines in which a peer is ahead by more than noise, the widest first."""
    found = [(geometric_mean(o.ratios(who)), o, who) for o in chosen for who in o.peers]
    found = sorted((f for f in found if f[0] > 1.05), key=lambda f: -f[0])
    if not found:
        return "No peer is ahead on the mean of an operation's sizes.\n"
    names = [f"{who} on `{o.name}` {o.type} ({ratio:.2f})" for ratio, o, who in found]
    more = f" and {len(names) - 8} more" if len(names) > 8 else ""
    return f"A peer is ahead on the mean of the sizes: {', '.join(names[:8])}{more}.\n"


def page(data):
    """What one needs to decide: a table, and per group a picture and who is ahead."""
    text = f"""{head(data)}
Every figure on this page is zonm's time over a peer's for the same work on the same data: **below 1, zonm is faster**. The
figures behind it, in nanoseconds per object, stand in [benchmarks-tables.md](benchmarks-tables.md). Geometric means over sizes
and operations:

{glance(data)}
Why they differ. Across an array zonm puts several small objects into one register, which a peer that takes one matrix at
a time cannot; that is where it is ahead most. One call per object pays for judging its arguments and for strides that
are known at run time alone. zonm forms `32f` results in double and rounds once, as it promises; the peers stay in single
precision, where twice as many numbers fit into a register. It uses the registers of its build, by default the 16 bytes of
the platform's baseline, and never contracts; OpenBLAS and LIBXSMM take the widest there are, and contract. From size 16 on,
OpenBLAS and LIBXSMM are what you want; zonm is made for the sizes below. Beyond the caches memory sets the pace, for all
the same.

In the pictures a dot is one size, the larger the greater; a bar is the mean of an operation's sizes.
"""
    for group, (title, note) in GROUPS.items():
        chosen = of_group(data, group)
        if not chosen:
            continue
        text += f"\n## {title}\n\n{first_words(note)}\n"
        if group in WITHOUT_PEERS:
            text += "".join(f"\n`{o.name}`, {o.type}, N = {o.rows[0][0]}:\n\n{o.table(None)}" for o in chosen)
        else:
            text += f"\n![Ratios of {title.lower()}](benchmarks/{group}.svg)\n\n{behind(chosen)}"
    return text


def first_words(note):
    return note.split(" *Limit*")[0]


def tables(data):
    rows = [row for row in data["rows"] if row[0] in GROUPS]
    limits = {row[2]: 1 / row[5]["machine"][0] for row in data["rows"] if row[0] == "limit"}
    limit = limits.get("64f")
    spread = [t[1] / t[0] for row in rows for t in row[5].values()]
    text = f"""{head(data)}
Figures are nanoseconds of processor time per object, the least of {data["repetitions"]} repetitions in random
order in one process; the median of a line's repetitions lies {100 * (geometric_mean(spread) - 1):.1f} % above on the mean. In
parentheses zonm's time over the peer's: **below 1, zonm is faster**. Means are geometric; `×` is the time of
an `_L` or `_P` form over its strided twin.
"""
    for group, (title, note) in GROUPS.items():
        chosen = of_group(data, group)
        if not chosen or group in WITHOUT_PEERS:
            continue
        of_product = limit if group.startswith("product") else None
        note = note.format(limit=f"{limit:.1f}") if of_product else first_words(note)
        text += f"\n## {title}\n\n{note}\n\nRatio of zonm's time to the peer's:\n\n{summary(chosen)}"
        for o in chosen:
            text += f"\n### `{o.name}`, {o.type}\n\n{o.table(of_product)}"
    return text


def write(data, folder):
    (folder / "benchmarks.md").write_text(page(data))
    (folder / "benchmarks-tables.md").write_text(tables(data))


if __name__ == "__main__":
    write(json.loads(Path(sys.argv[1]).read_text()), Path(sys.argv[2]))
