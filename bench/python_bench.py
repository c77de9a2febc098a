# SPDX-License-Identifier: Apache-2.0
# Measures the Python package on two messages, beside protobuf's (python3-protobuf) in the same process:
#
#     PYTHONPATH=build/release/python /usr/bin/python3 bench/python_bench.py
#
# Prints the table of docs/python.md: medians, in microseconds.
import datetime
import os
import pathlib
import platform
import statistics
import subprocess
import sys
import time
from collections.abc import Callable

import vorn_nac
from google.protobuf import __version__ as protobuf_version
from google.protobuf import descriptor_pb2, descriptor_pool, message_factory
from google.protobuf.internal import api_implementation
from vorn_nac import Nac_SetPortMsg, Nac_UserDataFlowCfg, Nac_UserDataFlowInfo, Nac_UserDataFlowMsg

SAMPLES, SAMPLE_SECONDS = 25, 0.02


def microseconds(call: Callable[[], object]) -> float:
    """Of one call: the median of samples."""
    def seconds(count: int) -> float:
        start = time.perf_counter()
        for _ in range(count):
            call()
        return time.perf_counter() - start

    count = 1
    while (took := seconds(count)) < SAMPLE_SECONDS:
        count = max(2 * count, int(count * SAMPLE_SECONDS / max(took, 1e-9)))
    return statistics.median(seconds(count) / count for _ in range(SAMPLES)) * 1e6


def shown(number: float) -> str:
    return f"{number:,.2f}" if number < 10 else f"{number:,.0f}"


def protobuf_classes() -> dict[str, type]:
    """The same types as protobuf messages, numbers as fixed-width integers."""
    file = descriptor_pb2.FileDescriptorProto(name="flows.proto", package="bench", syntax="proto3")
    for record in (Nac_SetPortMsg, Nac_UserDataFlowCfg, Nac_UserDataFlowInfo, Nac_UserDataFlowMsg):
        message = file.message_type.add(name=record.__name__)
        for number, field in enumerate(record.shape.fields, 1):
            kind = {4: "TYPE_FIXED32", 8: "TYPE_FIXED64"}[field.element_bytes] if field.table is None else "TYPE_MESSAGE"
            label = "LABEL_REPEATED" if field.form == "table vector" else "LABEL_OPTIONAL"
            made = message.field.add(name=field.name, number=number)
            made.type = descriptor_pb2.FieldDescriptorProto.Type.Value(kind)
            made.label = descriptor_pb2.FieldDescriptorProto.Label.Value(label)
            if field.table is not None:
                made.type_name = f".bench.{field.table}"
    pool = descriptor_pool.DescriptorPool()
    pool.Add(file)
    factory = message_factory.MessageFactory(pool)
    return {each.name: factory.GetPrototype(pool.FindMessageTypeByName(f"bench.{each.name}")) for each in file.message_type}


def fill(to: object, record: vorn_nac.Record) -> object:
    for field in record.shape.fields:
        value = getattr(record, field.name)
        if field.form == "scalar":
            setattr(to, field.name, value)
        elif field.form == "nested table":
            fill(getattr(to, field.name), value)
        else:
            for each in value:
                fill(getattr(to, field.name).add(), each)
    return to


def flows(count: int) -> Nac_UserDataFlowMsg:
    def cfg(seed: int) -> Nac_UserDataFlowCfg:
        return Nac_UserDataFlowCfg(*(seed * 0x9E3779B97F4A7C15 * k % (1 << 64) | 1 for k in range(1, 5)))
    return Nac_UserDataFlowMsg([Nac_UserDataFlowInfo(k + 1, k + 2, *(cfg(5 * k + j) for j in range(4))) for k in range(count)])


def imported() -> float:
    """Milliseconds that `import vorn_nac` takes a new process, the median of nine."""
    program = "import time; start = time.perf_counter(); import vorn_nac; print(time.perf_counter() - start)"
    times = (float(subprocess.run([sys.executable, "-c", program], check=True, capture_output=True).stdout) for _ in range(10))
    return statistics.median(list(times)[1:]) * 1e3  # without the first, which may compile


def main() -> int:
    processor = next((line.split(":")[1].strip() for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines()
                      if line.startswith("model name")), "unknown")
    classes = protobuf_classes()
    print("| microseconds | pack | unpack | protobuf: serialize | and fill | parse |\n|---|--:|--:|--:|--:|--:|")
    for name, record in (("two numbers, Nac_SetPortMsg", Nac_SetPortMsg(f0=24, f1=1)),
                         ("100 flows, Nac_UserDataFlowMsg", flows(100))):
        record_type, packed = type(record), bytes(record)
        if record_type.unpack(packed) != record:
            sys.exit(f"python_bench.py: {name} is not what was packed")
        message_type = classes[record_type.__name__]
        message = fill(message_type(), record)
        encoded = message.SerializeToString()
        times = [microseconds(call) for call in (
            lambda: vorn_nac.pack(record), lambda: vorn_nac.unpack(record_type, packed), message.SerializeToString,
            lambda: fill(message_type(), record).SerializeToString(), lambda: message_type.FromString(encoded))]
        print(f"| {name} | " + " | ".join(map(shown, times)) + " |")
    print(f"\nMeasured by bench/python_bench.py on {datetime.date.today()}: {processor}, {os.cpu_count()} processors, "
          f"Python {platform.python_version()}, protobuf {protobuf_version} ({api_implementation.Type()}). "
          f"`import vorn_nac` takes {imported():.0f} ms.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
