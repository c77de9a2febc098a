# SPDX-License-Identifier: Apache-2.0
# Wrong command lines: one sentence that says what is wrong and what would be right, and exit code 2.
import pathlib
import tempfile
import unittest

from drive import SESSION, VerbTest, nac

NO_BUS = ("is within one process, and this one sees no other's; name the bus: --bus ipc:// on this machine, --bus"
          " nats://HOST:4222 between machines, or either in VORN_BUS_URL")
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
    ("decode", "--format", "json", "x"): "decode --format: json is none of lines, raw, hex, prefixed, tagged, pcapng, dump;"
                                         " see nac decode --help",
    ("encode", "--layout", "Image", "x"): "encode --layout: Image is none of compact, image, sent; did you mean image?",
    ("random", "--count", "-1"): "random --count: -1 is no whole number without a sign; see nac random --help",
    ("record", "-o", "x", "--count", "0"): "record --count: 0 is no whole number of 1 or more; see nac record --help",
    ("listen", "--as", "4294967296"): "listen --as: 4294967296 is no whole number from 0 to 4294967295;"
                                      " see nac listen --help",
    ("describe", "nac_setport"): "nac_setport is not a message type; did you mean Nac_SetPortMsg?",
    ("decode", "--type", "NAC_SETPORTMSG", "x"): "NAC_SETPORTMSG is not a message type; did you mean Nac_SetPortMsg?",
    ("decode", "--type", "flow", "x"): "flow is not a message type; nac types lists them",
    ("listen", "--as", "1", "--bus", "loop:"): f"loop: {NO_BUS}",
    ("monitor", "--bus", "loop:"): f"loop: {NO_BUS}",
    ("hex", "--html", "--json", "x"): "hex --html excludes --json; see nac hex --help",
}


class Usage(VerbTest):
    def test_one_sentence_says_what_is_wrong(self) -> None:
        for arguments, sentence in WRONG.items():
            with self.subTest(arguments=arguments):
                done = nac(*arguments)
                self.assertEqual((done.returncode, done.stdout, done.stderr), (2, "", f"nac: {sentence}\n"))

    def test_a_url_that_is_none(self) -> None:
        done = nac("send", "--to", "1", "--bus", "ip://", str(SESSION))
        self.assertEqual(done.returncode, 2)
        self.assertIn("nac: opening ip:// at address 0: not a URL of this bus", done.stderr)
        self.assertIn("; URLs are ipc:// or ipc:///FOLDER on this machine, ", done.stderr)

    def test_a_file_of_another_format(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            for data, hint in ((b"0c000000\n", "for lines of hexadecimal digits give --format hex"),
                               (b"\x7fELF", "for bytes give --format raw, prefixed or tagged")):
                file = pathlib.Path(folder, "given")
                file.write_bytes(data)
                for verb in ("decode", "verify", "hex"):
                    done = nac(verb, str(file))
                    self.assertEqual((done.returncode, done.stderr), (1, f"nac: {file}:1: not JSON; {hint}\n"))

    def test_a_folder_and_a_file_that_is_not_there_have_one_wording(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            for verb in ("decode", "verify", "hex", "encode", "assemble", "exchange", "info", "replay"):
                done = nac(verb, folder)
                self.assertEqual((done.returncode, done.stderr), (3, f"nac: {folder}: Is a directory\n"), verb)
                done = nac(verb, f"{folder}/none")
                self.assertEqual((done.returncode, done.stderr), (3, f"nac: {folder}/none: No such file or directory\n"), verb)

    def test_a_word_that_is_shown_is_short_and_escaped(self) -> None:
        done = nac("decode", "--\x1b[2J" + "x" * 1000)
        self.assertEqual(done.returncode, 2)
        self.assertIn("decode has no option --\\x1b[2Jxxx", done.stderr)
        self.assertLess(len(done.stderr), 150)


if __name__ == "__main__":
    unittest.main()
