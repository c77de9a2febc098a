# SPDX-License-Identifier: Apache-2.0
# Long files stream: what a verb keeps does not grow with the number of messages. Not for sanitizers, which keep more.
import tempfile
import unittest

from drive import VerbTest, nac, peak_kib


class Memory(VerbTest):
    def test_many_messages_take_no_more_memory_than_few(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            peak = {}
            for count in (1_000, 200_000):
                file = f"{folder}/{count}"
                self.assert_done(nac("random", "--type", "Nac_UserTableHitMsg", "--count", str(count), "-o", file), 0)
                peak["encode", count] = peak_kib("encode", "--format", "prefixed", file, "-o", file + ".bin")
                given = ["--format", "prefixed", "--type", "Nac_UserTableHitMsg"]
                for verb in ("decode", "verify", "hex"):
                    peak[verb, count] = peak_kib(verb, *given, file + ".bin", "-o", "/dev/null")
                peak["diff", count] = peak_kib("diff", *given, file + ".bin", file + ".bin")
            for verb in ("encode", "decode", "verify", "hex", "diff"):
                self.assertLess(peak[verb, 200_000], peak[verb, 1_000] + 4096, verb)
                self.assertLess(peak[verb, 200_000], 64 * 1024, verb)
            print(f"count: 200000 messages decoded in {peak['decode', 200_000] // 1024} MiB")


if __name__ == "__main__":
    unittest.main()
