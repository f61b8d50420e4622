"""The generator's rules of the value codec (gen/generator/values.py) run the table of cases that
the device's codec runs too (apps/common/introspection/tests/valuecodec_cases.json), so that the
two implementations keep one set of rules."""

import json
import sys
import unittest

from modelcopy import GEN_ROOT

sys.path.insert(0, str(GEN_ROOT / "generator"))
import values  # noqa: E402

CASES = GEN_ROOT.parent / "apps" / "common" / "introspection" / "tests" / "valuecodec_cases.json"


def cases(section):
    return json.loads(CASES.read_text())[section]


class ValueCodecCasesTest(unittest.TestCase):
    def test_numbers_as_the_range_check_reads_them(self):
        for row in cases("numbers"):
            with self.subTest(row=row):
                if row["number"] is None:
                    with self.assertRaises(values.Unreadable):
                        values.read_number(row["kind"], row["text"])
                    continue
                number = values.read_number(row["kind"], row["text"])
                want = row["number"] if row["kind"] == "int" else float.fromhex(row["number"])
                self.assertEqual(number, want)
                self.assertEqual(str(number)[0] == "-", str(want)[0] == "-")

    def test_the_range_check_of_a_value_text(self):
        for row in cases("ranges"):
            with self.subTest(row=row):
                self.assertEqual(values.check_range(row["kind"], row["min"], row["max"],
                                                    row["text"]), row["result"])

    def test_the_texts_of_stored_values(self):
        for row in cases("texts"):
            with self.subTest(row=row):
                self.assertEqual(values.value_text(row["kind"], row["value"]), row["text"])

    def test_every_section_has_cases(self):
        for section in ("numbers", "ranges", "texts"):
            self.assertGreater(len(cases(section)), 10, section)


class BoundsTest(unittest.TestCase):
    def test_a_missing_bound_is_the_types_limit(self):
        self.assertIsNone(values.bounds("int", None, None))
        self.assertEqual(values.bounds("int", None, "4"), (values.INT_MIN, 4))
        self.assertEqual(values.bounds("int", "1", None), (1, values.INT_MAX))
        self.assertEqual(values.bounds("float", None, "25"), (2.0**-126, 25.0))
        self.assertEqual(values.bounds("float", "-5", None), (-5.0, values.FLOAT_MAX))
        self.assertEqual(values.FLOAT_MAX.hex(), "0x1.fffffe0000000p+127")

    def test_a_float_rounds_once_to_the_nearest_float_ties_to_even(self):
        # 1 + 2**-24 lies halfway between 1 and the next float: the even one, 1, wins; a hair
        # above it rounds up. Rounding through a double first would lose that hair.
        self.assertEqual(values.float32("1.000000059604644775390625"), 1.0)
        self.assertEqual(values.float32("1.00000005960464477539062500000000001"), 1 + 2**-23)
        self.assertEqual(values.float32(float.fromhex("0x1.0000010000001p+0")), 1 + 2**-23)


if __name__ == "__main__":
    unittest.main()
