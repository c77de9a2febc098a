# SPDX-License-Identifier: Apache-2.0
# Wrong command lines: one sentence that says what is wrong and what would be right, and exit code 2.
import unittest

from drive import VerbTest, nac

WRONG = {
    (): "a verb is missing; nac --help lists them",
    ("typse",): "typse is no verb; did you mean types?",
    ("quux",): "quux is no verb; nac --help lists them",
    ("--versoin",): "nac has no option --versoin; did you mean --version?",
    ("bus",): "a verb of bus is missing; nac bus --help lists them",
    ("bus", "statz"): "statz is no verb of bus; did you mean stats?",
    ("decode", "--fromat", "hex", "x"): "decode has no option --fromat; did you mean --format?",
    ("decode", "--FORMAT=hex", "x"): "decode has no option --FORMAT; did you mean --format?",
    ("types", "Nac_X"): "types takes no argument Nac_X; see nac types --help",
    ("send", "--to", "1"): "send needs FILE; see nac send --help",
    ("send", "x"): "send needs --to; see nac send --help",
    ("send", "--to"): "send --to needs a value; see nac send --help",
    ("decode", "--format", "json", "x"): "decode --format: json is none of lines, raw, hex, prefixed, tagged, pcapng;"
                                         " see nac decode --help",
    ("encode", "--layout", "Image", "x"): "encode --layout: Image is none of compact, image, sent; did you mean image?",
    ("random", "--count", "-1"): "random --count: -1 is no whole number without a sign; see nac random --help",
    ("record", "-o", "x", "--count", "0"): "record --count: 0 is no whole number of 1 or more; see nac record --help",
    ("listen", "--as", "4294967296"): "listen --as: 4294967296 is no whole number from 0 to 4294967295;"
                                      " see nac listen --help",
    ("hex", "--html", "--json", "x"): "hex --html excludes --json; see nac hex --help",
}


class Usage(VerbTest):
    def test_one_sentence_says_what_is_wrong(self) -> None:
        for arguments, sentence in WRONG.items():
            with self.subTest(arguments=arguments):
                done = nac(*arguments)
                self.assertEqual((done.returncode, done.stdout, done.stderr), (2, "", f"nac: {sentence}\n"))

    def test_a_word_that_is_shown_is_short_and_escaped(self) -> None:
        done = nac("decode", "--\x1b[2J" + "x" * 1000)
        self.assertEqual(done.returncode, 2)
        self.assertIn("decode has no option --\\x1b[2Jxxx", done.stderr)
        self.assertLess(len(done.stderr), 150)


if __name__ == "__main__":
    unittest.main()
