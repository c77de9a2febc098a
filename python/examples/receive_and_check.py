# SPDX-License-Identifier: Apache-2.0
# Receives messages at address 2 of the bus that VORN_BUS_URL names, checks each, and prints it field by field.
import sys
from vorn_nac import Bus

with Bus(address=2) as bus:
    print("listening", flush=True)
    for _ in range(int(sys.argv[1])):
        message = bus.receive(timeout=30) or sys.exit("nothing came")
        record = message.record
        print(f"{record.shape.name} from {message.source}")
        for fault in message.faults:
            print(f"  damaged: {fault}")
        for field in record.shape.fields:
            print(f"  {field.name}: {getattr(record, field.name)!r}")
