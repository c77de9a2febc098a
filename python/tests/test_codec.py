# SPDX-License-Identifier: Apache-2.0
# pack, unpack and verify give the results that `nac` prints for the same records and bytes.
import concurrent.futures
import json
import pathlib
from typing import Any, Callable, Iterator

import pytest
import vorn_nac
from support import CORPUS, FUZZ, nac
from vorn_nac import BadRecord, Damaged, Nac_SetPortMsg, Nac_SetUserTableMsg, Nac_SrvCar, UnknownType, WrongKind

TYPE_NAMES = list(vorn_nac.TYPES)


def lost_in(value: Any, path: str = "") -> Iterator[tuple[str, int]]:
    if isinstance(value, dict) and value.keys() == {"lost"}:
        yield path, value["lost"]
    elif isinstance(value, dict):
        for key, each in value.items():
            yield from lost_in(each, f"{path}.{key}" if path else key)
    elif isinstance(value, list):
        for k, each in enumerate(value):
            yield from lost_in(each, f"{path}[{k}]")


def emptied(shape: vorn_nac.Shape, value: dict[str, Any]) -> dict[str, Any]:
    """The record with an empty vector for each that is lost."""
    made = {}
    for field in shape.fields:
        each = value[field.name]
        if isinstance(each, dict) and each.keys() == {"lost"}:
            each = "" if field.element_bytes == 1 else []
        elif field.table is not None:
            inner = getattr(vorn_nac, field.table).shape
            each = emptied(inner, each) if isinstance(each, dict) else [emptied(inner, one) for one in each]
        made[field.name] = each
    return made


def agree(messages: list[tuple[str, bytes]], tmp_path: pathlib.Path) -> int:
    """Compares unpack and verify with `nac decode` and `nac verify`; returns how many messages are damaged."""
    def printed_by(verb: str, some: list[tuple[str, bytes]]) -> list[dict[str, Any]]:
        given = tmp_path / verb
        given.write_text("".join(json.dumps({"type": name, "hex": data.hex()}) + "\n" for name, data in some))
        printed = [json.loads(line) for line in nac(verb, "--json", str(given)).stdout.splitlines()]
        assert len(printed) == len(some)
        return printed

    # The tool reads no message of a size that none can have; it verifies them.
    decoded = iter(printed_by("decode", [message for message in messages if len(message[1]) >= 4]))
    damaged = 0
    for (name, data), printed in zip(messages, printed_by("verify", messages)):
        lost: dict[str, int] = {}
        try:
            record = vorn_nac.unpack(name, data)
            verdict = "ok"
        except Damaged as error:
            record, verdict, lost = error.record, error.verdict, error.lost
            damaged += 1
        shape = vorn_nac.TYPES[name].shape
        assert verdict == printed["verdict"], (name, data.hex())
        found = vorn_nac.inspect(name, data)
        if verdict == "argument":
            assert len(found.faults) == 1 and printed["faults"] == [] and record == vorn_nac.TYPES[name]()
            continue
        read = next(decoded)
        assert verdict == read["verdict"], (name, data.hex())
        assert vorn_nac.to_json(record) == emptied(shape, read["record"]), (name, data.hex())
        assert lost == dict(lost_in(read["record"])), (name, data.hex())
        assert found.layout == printed["layout"] and found.more_faults == printed["more_faults"], (name, data.hex())
        assert [fault._asdict() for fault in vorn_nac.verify(name, data)] == printed["faults"], (name, data.hex())
    return damaged


def test_unpack_and_verify_agree_on_the_corpus_of_the_reference(tmp_path: pathlib.Path) -> None:
    messages = []
    for path in sorted(CORPUS.glob("*.jsonl")):
        for case in map(json.loads, path.read_text().splitlines()):
            if not case.keys() & {"null", "length", "fail_allocation"}:
                messages.append((case["type"], bytes.fromhex(case["hex"])))
    damaged = agree(messages, tmp_path)
    assert len(messages) > 10_000 and damaged > 1_000
    print(f"count: {len(messages)} messages of the corpus, {damaged} damaged, are the same in Python")


def test_unpack_and_verify_agree_on_the_inputs_of_fuzzers(tmp_path: pathlib.Path) -> None:
    messages = []
    for path in sorted(FUZZ.rglob("*.hex")):
        for data in (bytes.fromhex(line) for line in path.read_text().splitlines() if not line.startswith("#")):
            # As the fuzzers that read take it: the type, options, and then the message.
            messages.append((TYPE_NAMES[data[0] % len(TYPE_NAMES)] if data else TYPE_NAMES[0], data[2:]))
    damaged = agree(messages, tmp_path)
    assert len(messages) > 2000 and damaged > 500
    print(f"count: {len(messages)} inputs of fuzzers, {damaged} damaged, are the same in Python")


def random_records(*arguments: str) -> list[dict[str, Any]]:
    return [json.loads(line) for line in nac("random", *arguments).stdout.splitlines()]


@pytest.mark.parametrize("filling", ["zero", "sparse", "rich", "extreme"])
def test_pack_agrees_on_random_records(filling: str, tmp_path: pathlib.Path) -> None:
    given = [line for seed in range(4) for name in TYPE_NAMES
             for line in random_records("--type", name, "--filling", filling, "--count", "5", "--seed", str(seed))]
    records = [vorn_nac.from_json(vorn_nac.TYPES[line["type"]], line["record"]) for line in given]
    assert [vorn_nac.to_json(record) for record in records] == [line["record"] for line in given]
    layouts: tuple[vorn_nac.Layout, ...] = ("compact", "image", "sent")
    for layout in layouts:
        some = [(line, record) for line, record in zip(given, records)
                if layout != "image" or record.shape.image_bytes is not None]
        path = tmp_path / layout
        path.write_text("".join(json.dumps(line) + "\n" for line, _ in some))
        encoded = [json.loads(line)["hex"] for line in nac("encode", "--layout", layout, str(path)).stdout.splitlines()]
        assert [vorn_nac.pack(record, layout).hex() for _, record in some] == encoded
        for (_, record), packed in zip(some, encoded):
            assert vorn_nac.unpack(type(record), bytes.fromhex(packed)) == record
            assert vorn_nac.verify(type(record), bytes.fromhex(packed)) == []


@pytest.mark.parametrize(("record", "text"), [
    (Nac_SetPortMsg(f0=1 << 32), "Nac_SetPortMsg.f0: 4294967296 does not fit into 32 bits"),
    (Nac_SetPortMsg(f1=-1), "Nac_SetPortMsg.f1: -1 does not fit into 32 bits"),
    (Nac_SetPortMsg(f0="24"), "Nac_SetPortMsg.f0: '24' is no integer"),  # type: ignore[arg-type]
    (Nac_SetUserTableMsg(f5=b"12345"), "Nac_SetUserTableMsg.f5: 5 elements, where the array has 6"),
    (Nac_SetUserTableMsg(f15=[1, 70000]), "Nac_SetUserTableMsg.f15[1]: 70000 does not fit into 16 bits"),
    (Nac_SetUserTableMsg(f19=Nac_SrvCar(f0=256)), "Nac_SetUserTableMsg.f19.f0: 256 does not fit into 8 bits"),
    (Nac_SetUserTableMsg(f31="alice"), "Nac_SetUserTableMsg.f31: 'alice' is no bytes: text.encode() makes bytes of text"),  # type: ignore[arg-type]
    (Nac_SetUserTableMsg(f15=7), "Nac_SetUserTableMsg.f15: 7 is no list"),  # type: ignore[arg-type]
    (Nac_SetUserTableMsg(f32=7), "Nac_SetUserTableMsg.f32: 7 is no list"),  # type: ignore[arg-type]
    (Nac_SetUserTableMsg(f32=[7]), "Nac_SetUserTableMsg.f32[0]: 7 is no Nac_RadiusDaclRule"),  # type: ignore[list-item]
    (Nac_SetUserTableMsg(f15=b"ab"), "Nac_SetUserTableMsg.f15: b'ab' is no list"),  # type: ignore[arg-type]
    (Nac_SetUserTableMsg(f53=[0] * 15), "Nac_SetUserTableMsg.f53: 15 elements, where the array has 16"),
    (Nac_SetUserTableMsg(f19=Nac_SetPortMsg()),  # type: ignore[arg-type]
     "Nac_SetUserTableMsg.f19: Nac_SetPortMsg(f0=0, f1=0) is no Nac_SrvCar"),
    (Nac_SetUserTableMsg(f19={"f0": 1}), "Nac_SetUserTableMsg.f19: {'f0': 1} is no Nac_SrvCar"),  # type: ignore[arg-type]
    (Nac_SetUserTableMsg(f19=Nac_SrvCar), "Nac_SetUserTableMsg.f19: the class Nac_SrvCar is no Nac_SrvCar"),  # type: ignore[arg-type]
])
def test_a_value_that_does_not_fit_is_named(record: vorn_nac.Record, text: str) -> None:
    with pytest.raises(BadRecord) as caught:
        vorn_nac.pack(record)
    assert str(caught.value) == text
    if record.shape.image_bytes is not None:
        with pytest.raises(BadRecord) as caught:
            vorn_nac.pack(record, "image")
        assert str(caught.value) == text


def test_what_is_no_message_is_refused_in_words() -> None:
    with pytest.raises(UnknownType, match="0x00000005 is no message type"):
        vorn_nac.unpack(5, b"")
    with pytest.raises(UnknownType, match="Nac_SrvCar is no message: it travels only inside others"):
        vorn_nac.pack(Nac_SrvCar())
    with pytest.raises(BadRecord, match="Nac_SetUserTableMsg has vectors, and so no fixed image"):
        vorn_nac.pack(Nac_SetUserTableMsg(), "image")
    with pytest.raises(ValueError, match="'packed' is no layout"):
        vorn_nac.pack(Nac_SetPortMsg(), "packed")  # type: ignore[arg-type]
    with pytest.raises(BadRecord, match="Nac_SetPortMsg: f2: Nac_SetPortMsg has no such field"):
        vorn_nac.from_json(Nac_SetPortMsg, {"f0": 1, "f2": 1})
    with pytest.raises(BadRecord, match="Nac_SetPortMsg: Object of type object is not JSON serializable"):
        vorn_nac.from_json(Nac_SetPortMsg, {"f0": object()})
    with pytest.raises(BadRecord, match="Nac_SetPortMsg: f0: -1 is not an integer from 0 to 4294967295"):
        vorn_nac.from_json(Nac_SetPortMsg, {"f0": -1})
    with pytest.raises(Damaged, match="3 bytes are no message, which has 4 to 2147483647"):
        vorn_nac.unpack(Nac_SetPortMsg, b"abc")


def test_no_value_of_any_field_does_anything_but_pack_or_raise_bad_record() -> None:
    odd = [None, -1, True, 1 << 70, 1.5, "x", "abcdef", b"x", b"abcdef", [], [None], [-1], [b"x"], {}, (1,), [[1]],
           range(2), object(), Nac_SrvCar, Nac_SrvCar(), Nac_SetPortMsg(), [Nac_SrvCar()], [Nac_SetPortMsg]]
    refused = packed = 0
    for record_type in vorn_nac.TYPES.values():
        for field in record_type.shape.fields:
            for value in odd:
                record = record_type()
                setattr(record, field.name, value)
                try:
                    vorn_nac.unpack(record_type, vorn_nac.pack(record))
                    packed += 1
                except BadRecord as error:
                    assert str(error).startswith(f"{record_type.__name__}.{field.name}")
                    refused += 1
    assert refused > 4000 and packed > 150


@pytest.mark.parametrize(("call", "text"), [
    (lambda: vorn_nac.pack(Nac_SetPortMsg),  # type: ignore[arg-type]
     "the class Nac_SetPortMsg was given for a record: Nac_SetPortMsg(...) makes one"),
    (lambda: vorn_nac.pack({"f0": 1}),  # type: ignore[arg-type]
     "{'f0': 1} was given for a record: from_json(TYPE, ...) makes a record of it"),
    (lambda: vorn_nac.to_json(b"abc"), "b'abc' was given for a record"),  # type: ignore[arg-type]
    (lambda: vorn_nac.from_json("Nac_SetPortMsg", {}),  # type: ignore[arg-type]
     "'Nac_SetPortMsg' was given for a record's class"),
    (lambda: vorn_nac.unpack(Nac_SetPortMsg(), b""),  # type: ignore[call-overload]
     "a record was given for a message type: give its class, its name or its id"),
    (lambda: vorn_nac.unpack({}, b""),  # type: ignore[call-overload]
     "{} was given for a message type: give its class, its name or its id"),
    (lambda: vorn_nac.unpack(int, b""),  # type: ignore[type-var]
     "the class int was given for a message type: give its class, its name or its id"),
    (lambda: vorn_nac.unpack(Nac_SetPortMsg, "0c00"),  # type: ignore[call-overload]
     "'0c00' was given for the bytes of a message; bytes.fromhex makes bytes of hexadecimal text"),
    (lambda: vorn_nac.verify(Nac_SetPortMsg, 12), "12 was given for the bytes of a message"),  # type: ignore[arg-type]
])
def test_another_kind_of_thing_is_named(call: Callable[[], object], text: str) -> None:
    with pytest.raises(WrongKind) as caught:
        call()
    assert str(caught.value) == text and isinstance(caught.value, TypeError)


def test_a_long_value_is_cut_in_the_text() -> None:
    with pytest.raises(BadRecord) as caught:
        vorn_nac.pack(Nac_SetUserTableMsg(f31="a" * 1000))  # type: ignore[arg-type]
    assert len(str(caught.value)) < 200


def test_bytes_of_a_record_are_its_message_and_its_type_unpacks_them() -> None:
    record = Nac_SetPortMsg(f0=24, f1=1)
    assert bytes(record) == vorn_nac.pack(record) == bytes.fromhex("0c00000008000c0004000800080000001800000001000000")
    assert Nac_SetPortMsg.unpack(bytes(record)) == record
    with pytest.raises(Damaged):
        Nac_SetPortMsg.unpack(bytes(record)[:-1])
    with pytest.raises(UnknownType, match="Nac_SrvCar is no message"):
        bytes(Nac_SrvCar())


def test_a_class_derived_from_a_message_packs_and_unpacks_like_it() -> None:
    class Port(Nac_SetPortMsg):
        pass

    assert bytes(Port(f0=5)) == bytes(Nac_SetPortMsg(f0=5))
    assert type(Port.unpack(bytes(Nac_SetPortMsg(f0=5)))) is Port
    assert vorn_nac.type_of("Nac_SetPortMsg") is Nac_SetPortMsg


def test_bytes_may_be_any_buffer_and_integers_whatever_counts_as_one() -> None:
    class Seven:
        def __index__(self) -> int:
            return 7

    record = Nac_SetUserTableMsg(f0=Seven(), f1=True, f5=bytearray(6), f15=(1, 2), f31=memoryview(b"ab"))  # type: ignore[arg-type]
    assert vorn_nac.unpack(Nac_SetUserTableMsg, bytes(record)) == Nac_SetUserTableMsg(f0=7, f1=1, f15=[1, 2], f31=b"ab")
    assert vorn_nac.to_json(record)["f31"] == "6162"


def test_arrays_larger_than_the_kept_buffers_are_packed_and_unpacked() -> None:
    for size in (4095, 4096, 4097, 100_000, 3_000_000):
        record = Nac_SetUserTableMsg(f31=bytes(range(256)) * (size // 256) + bytes(size % 256), f52=list(range(size // 4)))
        assert vorn_nac.unpack(Nac_SetUserTableMsg, vorn_nac.pack(record)) == record


def test_a_call_within_a_call_and_calls_of_threads_have_their_own_memory() -> None:
    inner = Nac_SetUserTableMsg(f31=b"inner" * 100, f52=list(range(300)))

    class Nested:
        def __index__(self) -> int:
            assert vorn_nac.unpack(Nac_SetUserTableMsg, bytes(inner)) == inner
            return 7

    outer = Nac_SetUserTableMsg(f31=b"outer" * 200, f32=[vorn_nac.Nac_RadiusDaclRule(f1=Nested())])  # type: ignore[arg-type]
    packed = bytes(outer)
    assert vorn_nac.unpack(Nac_SetUserTableMsg, packed).f31 == outer.f31

    def many(number: int) -> bool:
        record = Nac_SetUserTableMsg(f31=bytes([number]) * 2000, f52=[number] * 100)
        return all(vorn_nac.unpack(Nac_SetUserTableMsg, bytes(record)) == record for _ in range(300))

    with concurrent.futures.ThreadPoolExecutor(4) as threads:
        assert all(threads.map(many, range(8)))


def test_a_type_has_a_class_a_name_and_an_id() -> None:
    packed = vorn_nac.pack(Nac_SetPortMsg(f0=7))
    for given in (Nac_SetPortMsg, "Nac_SetPortMsg", 0x09B58155):
        assert vorn_nac.unpack(given, packed) == Nac_SetPortMsg(f0=7)  # type: ignore[call-overload]
    assert vorn_nac.unpack(Nac_SetPortMsg, memoryview(packed)).f0 == 7
