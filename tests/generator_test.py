#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The generator keeps what a name says: every export comes to a call of its own, constants stand where
the letters put them, and two exports that would come to one call stop it."""

import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "tools"))
sys.dont_write_bytecode = True

import generate
from families import BUILT, Built
from manifest import EXPORTS


def export(name):
    return next(e for e in EXPORTS if e.name == name)


def call(name):
    return generate.call_of(export(name))


class Collisions(unittest.TestCase):
    def refused(self, *names):
        with self.assertRaises(SystemExit) as caught:
            generate.require_distinct_calls(EXPORTS)
        for name in names:
            self.assertIn(name, str(caught.exception))

    def with_functions(self, family, functions):
        before = BUILT.get(family)
        BUILT[family] = Built("somewhere", functions)
        self.addCleanup(lambda: BUILT.update({family: before}) if before else BUILT.pop(family))

    def test_there_is_none(self):
        generate.require_distinct_calls(EXPORTS)

    def test_one_function_for_two_operations(self):
        self.with_functions("matrix_sums", {"zonmAdd": "sum", "zonmSub": "sum"})
        self.refused("zonmAdd_mm_32f", "zonmSub_mm_32f")

    def test_one_function_for_two_kinds_of_eigenvectors(self):
        self.with_functions("eigen_vectors", {
            "zonmEigenValuesVectors": "both", "zonmEigenValuesVectorsLeft": "oneSide",
            "zonmEigenValuesVectorsRight": "oneSide"})
        self.refused("zonmEigenValuesVectorsLeft_m_32f", "zonmEigenValuesVectorsRight_m_32f")

    def test_lost_length(self):
        before = generate.fixed_length
        self.addCleanup(setattr, generate, "fixed_length", before)
        generate.fixed_length = lambda e: None
        self.refused("zonmAdd_v2_32f", "zonmAdd_v3_32f")

    def test_lost_order_of_the_letters(self):
        before = export("zonmSub_cva_64f").group
        self.addCleanup(setattr, export("zonmSub_cva_64f"), "group", before)
        export("zonmSub_cva_64f").group = "vac"
        self.refused("zonmSub_vac_64f", "zonmSub_cva_64f")

    def test_generator_stops(self):
        self.with_functions("matrix_sums", {"zonmAdd": "sum", "zonmSub": "sum"})
        with self.assertRaises(SystemExit):
            generate.outputs()


class Calls(unittest.TestCase):
    def expect(self, name, *texts, function=None):
        found = call(name)
        self.assertEqual([text for _, text in found.arguments], list(texts))
        if function:
            self.assertEqual(found.function, function)

    def with_built(self, family, functions):
        before = BUILT.get(family)
        BUILT[family] = Built("somewhere", functions)
        self.addCleanup(lambda: BUILT.update({family: before}) if before else BUILT.pop(family))

    def test_constants_in_the_order_of_the_letters(self):
        vector = "VectorArray<const double>(src, srcStride0, srcStride2)"
        output = "VectorArray<double>(dst, dstStride0, dstStride2)"
        self.expect("zonmSub_vac_64f", vector, "Constant<double>(val)", output, "len", "count")
        self.expect("zonmSub_cva_64f", "Constant<double>(val)", vector, output, "len", "count")

    def test_arrays_of_constants(self):
        self.assertIn("ConstantArray<const float>(vals, valsStride0)",
                      [text for _, text in call("zonmAdd_vca_32f").arguments])
        self.assertIn("ConstantTable<const float>(vals, valsShift)",
                      [text for _, text in call("zonmAdd_vca_32f_L").arguments])
        self.expect("zonmAdd_vca_32f_P", "VectorElements<const float, false>(src, srcShift)",
                    "ConstantArray<const float>(vals, valsStride0)",
                    "VectorElements<float, true>(dst, dstShift, dstStride0)", "len", "count")

    def test_what_no_argument_carries(self):
        self.with_built("fixed_vectors", {"zonmAdd": "addVectors"})
        self.with_built("transforms", {"zonmAffineTransform": "affineTransform", "zonmProject": "project"})
        self.with_built("eigen_buf_size", {"zonmEigenValuesGetBufSize": "eigenValuesBufSize"})
        self.expect("zonmAdd_v2_32f", "src1", "src2", "dst", function="addVectors<2>")
        self.expect("zonmAffineTransform_m4v3_32f", "src1", "src2", "dst", function="affineTransform<3>")
        self.expect("zonmAffineTransform_m4v3a_32f", "src1", "src2", "src2Stride0", "dst", "dstStride0", "count",
                    function="affineTransform<3>")
        self.expect("zonmProject_m4v3_32f", *[a.name for a in export("zonmProject_m4v3_32f").arguments],
                    function="project")
        self.expect("zonmEigenValuesGetBufSize_64f", "size", "bufSize", function="eigenValuesBufSize<double>")

    def test_single_objects_beside_array_forms(self):
        self.assertEqual(call("zonmTrace_m_32f").arguments[-1], ("int32_t", "1"))
        self.assertEqual(call("zonmTrace_ma_32f").arguments[-1], ("int32_t", "count"))

    def test_every_argument_is_passed_once(self):
        for e in EXPORTS:
            text = ", ".join(text for _, text in generate.call_of(e).arguments)
            for a in e.arguments:
                passed = generate.re.findall(rf"(?<!\w){a.name}(?!\w)", text)
                self.assertEqual(len(passed), 1, f"{e.name}: {a.name} in {text}")


if __name__ == "__main__":
    unittest.main()
