# SPDX-License-Identifier: Apache-2.0
# Which messages of a file or a capture a verb reads: --type, --where, --packet, --from, --to.
import json
import pathlib
import tempfile
import unittest

import pcapng
from drive import DAMAGED, PORT, VerbTest, lines, nac, run

MOVE = "examples/port-move.pcapng"
USER = "Nac_SetUserTableMsg"
PORT_ID = 0x09B58155
NEVER = {
    "f0=18446744073709551616": "f0 of Nac_UserDataFlowCfg holds numbers from 0 to 18446744073709551615",
    "f0=seven": "f0 of Nac_UserDataFlowCfg holds numbers from 0 to 18446744073709551615",
    "f99=1": "no message has such a field; nac describe TYPE lists them",
    "f0": "not FIELD=VALUE or FIELD!=VALUE",
}
NEVER_USER = {
    "f0=4294967296": "f0 of Nac_SetUserTableMsg holds numbers from 0 to 4294967295",
    "f5=00:1b": 'f5 of Nac_SetUserTableMsg holds 6 bytes: "00:1b" has an odd number of digits',
    "f19.f9=1": "no message of the types that are given has such a field; nac describe TYPE lists them",
}


def packets(*choice: str) -> list[int]:
    done = nac("decode", *choice, MOVE)
    return [json.loads(line)["packet"] for line in done.stdout.splitlines()]


class Choosing(VerbTest):
    def test_a_message_of_a_capture_keeps_its_packet_time_and_addresses(self) -> None:
        packet = {"packet": 8, "time": "2025-11-21T14:40:00.488774678Z", "from": 1, "to": 2}
        for verb in ("decode", "verify", "hex"):
            shown = self.read(verb, nac(verb, "--json", "--packet", "8", MOVE).stdout)
            self.assertEqual([{key: each[key] for key in packet} for each in shown], [packet], verb)
        done = nac("hex", "--packet", "8", MOVE)
        self.assert_done(done, 0)
        self.assertEqual(done.stdout.splitlines()[0], "message Nac_SetUserTableMsg  ; examples/port-move.pcapng: packet 8, "
                         "2025-11-21T14:40:00.488774678Z, 1 -> 2, 1042 bytes, compact, ok")
        self.assertNotIn("packet", nac("decode", "-", given=lines(PORT)).stdout)

    def test_packets_by_number_and_range(self) -> None:
        self.assertEqual(packets("--packet", "3", "--packet", "5-7", "--packet", "27-"), [3, 5, 6, 7, 27, 28])
        self.assertEqual(json.loads(nac("info", "--json", "--packet", "2-4", MOVE).stdout)["messages"], 3)
        done = nac("replay", "--packet", "2-4", "--speed", "max", "--bus", "loop:", MOVE)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("3 messages in 3 batches", done.stderr)
        for given in ("0", "x", "5-3", "-", "1-x"):
            self.assert_done(nac("decode", f"--packet={given}", MOVE), 2,
                             f"nac: --packet {given}: no packet number from 1, and no range as 5-9 or 20-\n")

    def test_a_text_is_what_its_bytes_are(self) -> None:
        for value in ("alice@example.org", "616c696365406578616d706c652e6f7267"):
            self.assertEqual(packets("--where", f"f31={value}"), [8], value)
        self.assertEqual(packets("--type", USER, "--where", "f5=00:1b:44:11:3a:b7"), [8, 18])

    def test_files_of_all_formats_are_chosen_from(self) -> None:
        given = nac("encode", "--type", "Nac_SetPortMsg", "-", given='{"f0": 7}\n{"f0": 8}\n').stdout
        done = nac("decode", "--where", "f0=8", "-", given=given)
        self.assert_done(done, 0)
        self.assertEqual([json.loads(line)["record"]["f0"] for line in done.stdout.splitlines()], [8])
        done = nac("verify", "--where", "f0!=8", "-", given=given)
        self.assert_done(done, 0, "1 message, 0 damaged\n")
        self.assertIn("standard input:1:", done.stdout)

    def test_a_type_filters_messages_that_name_theirs_and_is_that_of_others(self) -> None:
        self.assertEqual(packets("--type", USER), [8, 18])
        bare = json.dumps({"hex": PORT["hex"]})
        given = lines(PORT, {**PORT, "type": "Nac_UserDataFlowQueryMsg"}) + bare + "\n"
        done = nac("decode", "--type", "Nac_SetPortMsg", "-", given=given)
        self.assert_done(done, 0)
        self.assertEqual(len(done.stdout.splitlines()), 2)
        help_text = " ".join(nac("decode", "--help").stdout.split())
        self.assertIn("Where messages name their types, as in captures, only those of this type; elsewhere, the type of all"
                      " messages, or in JSON lines of those that name none", help_text)

    def test_nothing_that_fits_is_no_error_and_is_said(self) -> None:
        self.assert_done(nac("decode", "--where", "f31=bob@example.org", MOVE), 0,
                         "nac: none of 28 messages is what the options ask for\n")
        self.assert_done(nac("decode", "--from", "9", MOVE), 0, "nac: none of 28 messages is what the options ask for\n")

    def test_what_no_message_fits_is_refused(self) -> None:
        for given, why in NEVER.items():
            for verb in ("decode", "info", "replay"):
                self.assert_done(nac(verb, "--where", given, MOVE), 2, f"nac: --where {given}: {why}\n")
        for given, why in NEVER_USER.items():
            self.assert_done(nac("hex", "--type", USER, "--where", given, MOVE), 2, f"nac: --where {given}: {why}\n")
        self.assert_done(nac("decode", "--where", "f54=1", "--where", "f0.f0=1", MOVE), 2,
                         "nac: --where f0.f0=1: no message has this field and those of the other --where\n")

    def test_only_captures_have_packets_and_addresses(self) -> None:
        for option in ("--packet", "--from", "--to"):
            self.assert_done(nac("decode", option, "1", "-", given=lines(PORT)), 2,
                             "nac: standard input: no capture, and only of captures --packet, --from and --to choose\n")

    def test_what_is_not_chosen_does_not_fail(self) -> None:
        capture = pcapng.capture(pcapng.batches([(PORT_ID, bytes.fromhex(str(PORT["hex"]))), (99, b"abcd"),
                                                 (PORT_ID, bytes.fromhex(str(DAMAGED["hex"])))]))
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder, "given.pcapng")
            file.write_bytes(capture)
            self.assertEqual(run("decode", "--packet", "1", str(file)).returncode, 0)
            self.assertEqual(run("decode", "--packet", "3", str(file)).returncode, 1)
            self.assertEqual(run("decode", "--packet", "2", str(file)).returncode, 1)


if __name__ == "__main__":
    unittest.main()
