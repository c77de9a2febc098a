# SPDX-License-Identifier: Apache-2.0
# Two processes: one sends two records as one batch, the other prints them.
import os, sys, tempfile
from vorn_nac import Bus, Nac_SetPortMsg

with tempfile.TemporaryDirectory() as folder:
    if os.fork() == 0:
        with Bus(f"ipc://{folder}", 2) as bus:
            for _ in range(2):
                message = bus.receive(timeout=10) or sys.exit("nothing came")
                print(f"from {message.source}: {message.record}", flush=True)
        os._exit(0)
    with Bus(f"ipc://{folder}", 1, send_timeout=10) as bus:
        bus.send(2, [Nac_SetPortMsg(f0=24, f1=1), Nac_SetPortMsg(f0=25, f1=0)])
        bus.flush(timeout=10)
    sys.exit(os.wait()[1])
