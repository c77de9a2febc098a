# SPDX-License-Identifier: Apache-2.0
# How deep the stack grows: the compiler's own figures, added up along the deepest chain of calls.
#
# OBJECTS in the environment is the folder of the library's objects, beside which g++ has written its call graphs
# (-fcallgraph-info=su). Hooks, bus and C library are not counted; where they are called, they come on top.
import os
import pathlib
import re
import unittest

OBJECTS = pathlib.Path(os.environ["OBJECTS"])
UNITS = [*(OBJECTS / "library/vorn_nac_user").glob("*.cpp")]
GRAPHS = sorted(graph for target in ("library/CMakeFiles/vorn_nac_user_objects.dir", "runtime/CMakeFiles/kaplo_runtime.dir")
                for graph in (OBJECTS / target).rglob("*.ci"))
# Bytes from an exported function's own frame down. A single send keeps its fixed image on the stack.
MOST = {"__unpack": 1024, "_free__unpacked": 128, "__pack": 1024, "__sendsingle": 2048, "__sendbatch": 1024,
        "__sendmsg": 2048, "__sendtomsg": 2048, "_recv_init": 512, "_send_init": 64, "_resource_clean": 64}


class Graph:
    def __init__(self, text: str) -> None:
        nodes = re.findall(r'^node: \{ title: "([^"]+)" label: "([^"]+)"', text, re.M)
        self.frames = {title: int(label.rpartition("\\n")[2].split()[0]) for title, label in nodes
                       if re.search(r"\d+ bytes \(", label)}
        self.unbounded = [title for title, label in nodes if re.search(r"bytes \(dynamic\)", label)]
        self.callees: dict[str, set[str]] = {}
        for source, target in re.findall(r'^edge: \{ sourcename: "([^"]+)" targetname: "([^"]+)"', text, re.M):
            self.callees.setdefault(source, set()).add(target)

    def depth(self, function: str, callers: tuple[str, ...] = ()) -> int:
        if function in callers:
            raise AssertionError(f"{function} calls itself: no bound")
        below = (self.depth(callee, (*callers, function)) for callee in self.callees.get(function, ()))
        return self.frames.get(function, 0) + max(below, default=0)


class StackUse(unittest.TestCase):
    def test_every_function_has_a_bound_and_none_calls_itself(self) -> None:
        self.assertEqual(len(GRAPHS), len(UNITS) + 1, "the units and their runtime")
        runtime = next(Graph(path.read_text()) for path in GRAPHS if path.name.startswith("kaplo_runtime"))
        deepest: dict[str, tuple[int, str]] = {}
        for path in GRAPHS:
            graph = Graph(path.read_text())
            self.assertEqual(graph.unbounded, [], path.name)
            for name in graph.frames:
                graph.callees.setdefault(name, set())
            graph.frames = {**runtime.frames, **graph.frames}
            graph.callees = {**runtime.callees, **graph.callees}
            for function in graph.frames:
                kind = next((kind for kind in MOST if function.endswith(kind)), None)
                if kind and re.match(r"(Nac|nac)_", function):
                    deepest[kind] = max(deepest.get(kind, (0, "")), (graph.depth(function), function))
        self.assertEqual(sorted(deepest), sorted(MOST))
        for kind, (depth, function) in deepest.items():
            print(f"count: {depth:>5} bytes of stack under {function}, the most of all ...{kind}")
        for kind, (depth, function) in deepest.items():
            self.assertLessEqual(depth, MOST[kind], function)


if __name__ == "__main__":
    unittest.main()
