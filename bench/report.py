# SPDX-License-Identifier: Apache-2.0
# Tables and diagrams of benchmark results. Alone, report.py results.json writes results.md and the first diagram beside
# that file again. docs/make/site.py draws the others for the site.
import functools
import json
import math
import pathlib
import statistics
import sys
from collections.abc import Iterable

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plot  # noqa: E402
from matplotlib import ticker  # noqa: E402

OURS = "vorn_nac_user"
PEERS = ["protobuf", "protobuf arena", "nanopb", "protobuf-c", "Cap'n Proto", "zpp_bits", "SBE", "msgpack"]
ELEMENTS = [1, 10, 100, 1000, 10000]
CONTENTS = {"same": "the same record every time", "varied": "a pool of records, half of their scalars zero"}

# Colours that the colour-blind tell apart, each with a shape of its own.
LOOKS = {OURS: ("#000000", "D"), "protobuf": ("#0072B2", "o"), "protobuf arena": ("#56B4E9", "s"),
         "nanopb": ("#CC79A7", "v"), "protobuf-c": ("#009E73", "^"), "Cap'n Proto": ("#D55E00", "P"),
         "msgpack": ("#E69F00", "X"), "SBE": ("#7F3C8D", "p"), "zpp_bits": ("#8C8C00", "h")}
SHARES = ["0 % zero", "1 % zero", "5 % zero", "50 % zero", "the same two thirds zero"]
# Our time over SBE's that is aimed at: write and read the same full record, write and read the pool.
TARGETS = {"Nac_SetPortMsg": (1.2, 1.2, 1.5, 1.5), "Nac_UserDataFlowInfo": (0.25, 0.15, 0.5, 0.5),
           "Nac_UserDataFlowMsg x 100": (0.35, 0.5, 0.7, 0.9), "Nac_DaclRuleIpInfo": (1.0, 0.5, 1.3, 1.1),
           "Nac_SetUserTableMsg sparse": (0.8, 0.7, 0.8, 0.8), "Nac_SetUserTableMsg rich": (0.55, 0.6, 0.8, 1.0)}
QUIET = 0.1  # of a quiet run, the third quartile is at most that far above the median


def spread_of(row: dict) -> float:
    """How far the third quartile is above the median."""
    return statistics.quantiles(row["ns"], n=4)[2] / statistics.median(row["ns"]) - 1


class Results:
    def __init__(self, results: dict):
        self.raw = results
        self.machine = results["machine"]
        self.medians = {(row["message"], row["content"], row["operation"]): statistics.median(row["ns"])
                        for row in results["times"]}
        self.facts = {(row["message"], row["content"]): row for row in results["facts"]}
        self.instructions = {(row["message"], row["content"], row["operation"]): row["instructions"]
                             for row in results.get("instructions", [])}
        self.messages = list(dict.fromkeys(row["message"] for row in results["facts"]))
        measured = results["facts"][0]["wire_bytes"]
        self.peers = [peer for peer in PEERS if peer in measured]
        self.left_out = [peer for peer in PEERS if peer not in measured]
        self.codecs = [OURS, *self.peers]
        self.looks = {codec: LOOKS[codec] for codec in self.codecs}

    def ns(self, message: str, content: str, operation: str) -> float | None:
        return self.medians.get((message, content, operation))

    def spread(self) -> float:
        """How far, in the median benchmark, the quarter of its slower repetitions is above its median."""
        return statistics.median(spread_of(row) for row in self.raw["times"])

    def unquiet(self) -> list[str]:
        """The benchmarks whose repetitions lie too far apart, the worst first."""
        far = sorted(((spread_of(row), row) for row in self.raw["times"]), key=lambda pair: -pair[0])
        return [f"{row['message']}, {row['content']}, {row['operation']}: {spread:.0%}" for spread, row in far if spread > QUIET]


def write_json(results: dict, path: pathlib.Path) -> None:
    """A row a line, so that two runs can be compared."""
    parts = []
    for key, value in results.items():
        if isinstance(value, list):
            rows = ",\n".join("  " + json.dumps(row) for row in value)
            parts.append(f' "{key}": [\n{rows}\n ]')
        else:
            parts.append(f' "{key}": {json.dumps(value)}')
    path.write_text("{\n" + ",\n".join(parts) + "\n}\n")


# ---- tables ----------------------------------------------------------------------------------------------


def number(value: float | None) -> str:
    if value is None:
        return ""
    digits = 0 if value == 0 else 2 - math.floor(math.log10(abs(value)))
    if value == round(value):
        digits = min(digits, 0)
    return f"{round(value, digits):,.{max(0, min(digits, 1))}f}"


def times(ratio: float) -> str:
    return f"{ratio:.1f}x" if ratio < 9.95 else f"{ratio:,.0f}x"


def table(head: list[str], rows: list[list[str]]) -> str:
    aligned = "|---|" + "---:|" * (len(head) - 1)
    return "\n".join(["| " + " | ".join(head) + " |", aligned, *("| " + " | ".join(row) + " |" for row in rows)]) + "\n"


def comparison(results: Results, direction: str, content: str) -> str:
    rows = []
    for message in results.messages:
        floor = results.ns(message, content, f"{direction}/memcpy")
        ours = results.ns(message, content, f"{direction}/{OURS}")
        row = [message, number(floor), f"**{number(ours)}** ({times(ours / floor)})"]
        for peer in results.peers:
            value = results.ns(message, content, f"{direction}/{peer}")
            row.append(f"{number(value)} ({times(value / ours)})")
        rows.append(row)
    return table(["ns a message", "memcpy", f"{OURS} (to memcpy)", *(f"{peer} (to ours)" for peer in results.peers)], rows)


def own_operations(results: Results, content: str) -> str:
    rows = []
    for message in results.messages:
        own = {operation.removeprefix("library/"): value for (named, kind, operation), value in results.medians.items()
               if named == message and kind == content and operation.startswith("library/")}
        batch = next((name for name in own if name.startswith("send ")), None)
        per_record = f"{number(own[batch] / int(batch.split()[1]))} ({batch.split()[1]})" if batch else ""
        rows.append([message, number(own["size"]), number(results.ns(message, content, f"encode/{OURS}")), number(own["send"]),
                     per_record, number(results.ns(message, content, f"decode/{OURS}")), number(own.get("unpack image")),
                     number(own.get("memcpy image"))])
    return table(["ns", "size", "pack", "send one", "send a batch, each record (of)", "unpack, free", "unpack image, free",
                  "memcpy of the image"], rows)


def wire_bytes(results: Results) -> str:
    rows = []
    for message in results.messages:
        for content in CONTENTS:
            sizes = results.facts[message, content]["wire_bytes"]
            rows.append([f"{message}, {content}", number(results.facts[message, content]["memory_bytes"]),
                         number(sizes.get("fixed image")), *(number(sizes[codec]) for codec in results.codecs)])
    return table(["bytes", "C record with arrays", "fixed image", *results.codecs], rows)


def heap_calls(results: Results) -> str:
    rows = []
    for message in results.messages:
        calls = results.facts[message, "varied"]["heap_calls"]
        for direction, word in (("encode", "write"), ("decode", "read")):
            rows.append([f"{message}, {word}", *(number(calls[f"{direction}/{codec}"]) for codec in results.codecs)])
    return table(["calls of the heap", *results.codecs], rows)


def series(results: Results, direction: str) -> str:
    rows = []
    for message in results.messages:
        for share in SHARES:
            ours = results.ns(message, share, f"{direction}/{OURS}")
            if ours is not None:
                floor = results.ns(message, share, f"{direction}/memcpy")
                peers = [results.ns(message, share, f"{direction}/{peer}") for peer in results.peers]
                rows.append([f"{message}, {share}", number(floor), f"**{number(ours)}** ({times(ours / floor)})",
                             *(f"{number(value)} ({times(value / ours)})" for value in peers)])
    return table(["ns a message", "memcpy", f"{OURS} (to memcpy)", *(f"{peer} (to ours)" for peer in results.peers)], rows)


def targets(results: Results) -> str:
    """Ours beside SBE: times, what is aimed at, and the instructions that both take."""
    if "SBE" not in results.peers:
        return "SBE was left out.\n"
    rows = []
    for message, aims in TARGETS.items():
        kinds = [(content, direction) for content in CONTENTS for direction in ("encode", "decode")]
        for (content, direction), aim in zip(kinds, aims):
            ours, sbe = (results.ns(message, content, f"{direction}/{codec}") for codec in (OURS, "SBE"))
            counts = [results.instructions.get((message, content, f"{direction}/{codec}")) for codec in (OURS, "SBE")]
            words = f"{'write' if direction == 'encode' else 'read'}, {'same' if content == 'same' else 'pool'}"
            rows.append([f"{message}, {words}", number(ours), number(sbe), f"{ours / sbe:.2f}", f"{aim:.2f}",
                         "met" if ours / sbe <= aim else "missed", *(number(count) for count in counts)])
    return table(["", f"{OURS}, ns", "SBE, ns", "ratio", "target", "", f"{OURS}, instructions", "SBE, instructions"], rows)


def cold(results: Results) -> str:
    peers = [peer for peer in results.peers if results.ns(results.messages[-1], "cold", f"decode/{peer}") is not None]
    rows = []
    for message in results.messages:
        ours = results.ns(message, "cold", f"decode/{OURS}")
        if ours is not None:
            rows.append([message, f"**{number(ours)}**",
                         *(f"{number(value)} ({times(value / ours)})"
                           for value in (results.ns(message, "cold", f"decode/{peer}") for peer in peers))])
    return table(["ns a message", OURS, *(f"{peer} (to ours)" for peer in peers)], rows)


def threads(results: Results) -> str:
    rows = []
    for message in results.messages:
        row = [message]
        for direction in ("encode", "decode"):
            alone, both = (results.ns(message, f"{count} threads", f"{direction}/{OURS}") for count in (1, 2))
            row += [number(alone), f"{number(both)} ({times(both / alone)})"]
        rows.append(row)
    return table(["ns a message and thread", "write, one thread", "two (to one)", "read, one thread", "two (to one)"], rows)


def facts_of_machine(results: Results) -> str:
    machine = results.machine
    versions = ", ".join(f"{name} {version}" for name, version in machine["versions"].items())
    return "".join(f"- {line}\n" for line in (
        machine["date"], machine["processor"], f"caches: {machine['caches']}", machine["system"], machine["compiler"],
        versions, f"medians of {results.raw['repetitions']} repetitions of at least {results.raw['seconds_each']} s; in the "
        f"median benchmark the third quartile is {results.spread():.1%} above the median"))


def quietness(results: Results) -> str:
    text = f"- left out: {', '.join(results.left_out)}\n" if results.left_out else ""
    if far := results.unquiet():
        text += (f"- **not a quiet run**: in {len(far)} of {len(results.raw['times'])} benchmarks the third quartile is more than "
                 f"{QUIET:.0%} above the median; to be repeated. The worst: {'; '.join(far[:3])}\n")
    return text


def markdown(results: Results) -> str:
    text = ("# Results\n\nWritten by `./dev bench`; [the page above](../README.md) says what is measured and how to read "
            "it.\n\n" if results.raw["repetitions"] > 3 else "# Results of a quick run\n\nGood for trying only.\n\n")
    text += facts_of_machine(results) + quietness(results)
    text += f"\n{diagram_line(FIRST_DIAGRAM)}\n{MORE_DIAGRAMS}\n"
    for direction, heading in (("encode", "Write: a record to bytes"), ("decode", "Read: bytes to a record, and release")):
        text += f"\n## {heading}\n"
        for content, words in CONTENTS.items():
            text += f"\n{words[0].upper()}{words[1:]}:\n\n{comparison(results, direction, content)}"
    text += ("\n## Targets\n\nOur time over SBE's. Instructions are those of a call, without the C library's: a target that "
             f"is missed by time is missed by these.\n\n{targets(results)}")
    text += "\n## By the share of zeros\n\nPools of records with that share of their scalars zero.\n"
    for direction, words in (("encode", "Write"), ("decode", "Read and release")):
        text += f"\n{words}:\n\n{series(results, direction)}"
    text += f"\n## Cold memory\n\n64 MiB of messages, read in random order.\n\n{cold(results)}"
    text += f"\n## Two threads\n\nAt the same work on a core each, with the pool.\n\n{threads(results)}"
    text += "\n## The library's operations\n"
    for content, words in CONTENTS.items():
        text += f"\n{words[0].upper()}{words[1:]}:\n\n{own_operations(results, content)}"
    text += f"\n## Bytes on the wire\n\nOf a pool the mean.\n\n{wire_bytes(results)}"
    text += ("\n## Calls of the heap\n\nmalloc, realloc, free and their like, for one message of the pool, once a codec has "
             f"what it keeps.\n\n{heap_calls(results)}")
    return text


# ---- diagrams --------------------------------------------------------------------------------------------


def short(message: str) -> str:
    return message.removeprefix("Nac_").replace(" x ", " × ")


def note(results: Results) -> str:
    machine = results.machine
    return f"{machine['processor']}; {machine['compiler']}; {machine['date']}"


def save(figure, path: pathlib.Path, results: Results) -> None:
    figure.text(0.01, 0.01, note(results), fontsize=7, color="#666666")
    figure.savefig(path, metadata={"Date": None})
    plot.close(figure)
    # Without matplotlib's trailing blanks, which would only show in differences.
    path.write_text("\n".join(line.rstrip() for line in path.read_text().splitlines()) + "\n")


def quiet(axes) -> None:
    for side in ("top", "right", "left"):
        axes.spines[side].set_visible(False)
    axes.tick_params(which="both", length=0)
    axes.set_axisbelow(True)


def plain_log(axis) -> None:
    axis.set_major_locator(ticker.LogLocator(base=10, numticks=12))
    axis.set_major_formatter(ticker.FuncFormatter(lambda value, _: f"{value:,.12g}"))
    axis.set_minor_locator(ticker.LogLocator(base=10, subs=(2, 5), numticks=40))
    axis.set_minor_formatter(ticker.NullFormatter())


def dots(axes, rows: list[str], values, looks: dict) -> None:
    """A row a message, a mark a codec; ours larger, and after those that it meets."""
    for y, row in enumerate(rows):
        axes.axhline(y, color="#e4e4e4", linewidth=0.8, zorder=0)
        for codec, (colour, shape) in looks.items():
            ours = codec == OURS
            axes.plot(values(row, codec), y, shape, color=colour, markersize=10.5 if ours else 7, zorder=2 if ours else 3,
                      markeredgecolor="white", markeredgewidth=0.7)
    axes.set_yticks(range(len(rows)), [short(row) for row in rows])
    axes.set_ylim(len(rows) - 0.4, -0.8)
    axes.grid(axis="x", color="#e4e4e4", linewidth=0.8)
    quiet(axes)


def legend(figure, looks: dict, y: float) -> None:
    handles = [plot.Line2D([], [], color=colour, marker=shape, linestyle="", markersize=10.5 if name == OURS else 7,
                           markeredgecolor="white", label=name) for name, (colour, shape) in looks.items()]
    figure.legend(handles=handles, loc="upper left", bbox_to_anchor=(0.005, y), ncol=len(looks), frameon=False,
                  handletextpad=0.2, columnspacing=1.4, fontsize=9)


def title(figure, text: str, below: str) -> None:
    figure.text(0.01, 0.985, text, fontsize=13, fontweight="bold", va="top")
    figure.text(0.01, 0.938, below, fontsize=9.5, color="#444444", va="top")


def ratio_picture(results: Results, content: str, path: pathlib.Path) -> None:
    figure, both = plot.subplots(1, 2, figsize=(11, 5.6), sharey=True, sharex=True)
    for axes, direction, words in zip(both, ("encode", "decode"), ("write a record", "read a message and release it")):
        def ratio(message: str, codec: str) -> float:
            return results.ns(message, content, f"{direction}/{codec}") / results.ns(message, content, f"{direction}/memcpy")
        dots(axes, results.messages, ratio, results.looks)
        axes.set_xscale("log")
        plain_log(axes.xaxis)
        axes.axvline(1, color="#888888", linewidth=1.2)
        axes.set_title(words, loc="left", fontsize=10.5)
        axes.annotate("memcpy", (1, -0.5), xytext=(3, 0), textcoords="offset points", fontsize=8, color="#666666", va="center")
    title(figure, "Time a message takes, over memcpy of the library's compact bytes",
          f"{CONTENTS[content]}; further left is faster")
    legend(figure, results.looks, 0.905)
    figure.subplots_adjust(left=0.2, right=0.985, top=0.78, bottom=0.09, wspace=0.05)
    save(figure, path, results)


def spread_out(heights: dict[str, float], least: float) -> dict[str, float]:
    """Moves the heights of labels apart, upwards first, and back to the middle of where they belong."""
    names = sorted(heights, key=heights.get)
    spread = dict(heights)
    for _ in range(200):
        for lower, upper in zip(names, names[1:]):
            missing = least - (spread[upper] - spread[lower])
            if missing > 1e-9:
                spread[lower] -= missing / 2
                spread[upper] += missing / 2
    return spread


def growth_picture(results: Results, content: str, path: pathlib.Path) -> None:
    figure, both = plot.subplots(1, 2, figsize=(11, 5.2), sharey=True)
    looks = {"memcpy": ("#888888", "."), **results.looks}
    for axes, direction, words in zip(both, ("encode", "decode"), ("write a record", "read a message and release it")):
        ends = {}
        for codec, (colour, shape) in looks.items():
            per_element = [results.ns(f"Nac_UserDataFlowMsg x {n}", content, f"{direction}/{codec}") / n for n in ELEMENTS]
            axes.plot(ELEMENTS, per_element, color=colour, marker=shape, linewidth=2.4 if codec == OURS else 1.5,
                      markersize=6, markeredgecolor="white", zorder=5 if codec == OURS else 3)
            ends[codec] = math.log10(per_element[-1])
        axes.set_xscale("log")
        axes.set_yscale("log")
        plain_log(axes.xaxis)
        plain_log(axes.yaxis)
        axes.set_xlim(0.8, 13000)
        axes.grid(axis="y", color="#e4e4e4", linewidth=0.8)
        quiet(axes)
        axes.set_title(words, loc="left", fontsize=10.5)
        axes.set_xlabel("elements")
        low, high = (math.log10(end) for end in axes.get_ylim())
        for codec, height in spread_out(ends, 0.048 * (high - low)).items():
            axes.annotate(codec, (1, 10 ** height), xycoords=("axes fraction", "data"), xytext=(4, 0),
                          textcoords="offset points", va="center", fontsize=9, color=looks[codec][0],
                          fontweight="bold" if codec == OURS else "normal", annotation_clip=False)
    title(figure, "Nanoseconds for each element of Nac_UserDataFlowMsg",
          f"{CONTENTS[content]}; a level line: twice the elements, twice the time")
    figure.subplots_adjust(left=0.06, right=0.885, top=0.82, bottom=0.15, wspace=0.32)
    save(figure, path, results)


def bytes_picture(results: Results, path: pathlib.Path) -> None:
    family = "protobuf, nanopb, protobuf-c"
    looks = {OURS: LOOKS[OURS], "its fixed image": ("#888888", "D"), family: LOOKS["protobuf"],
             "Cap'n Proto": LOOKS["Cap'n Proto"], "msgpack": LOOKS["msgpack"]}
    keys = {family: "protobuf", "its fixed image": "fixed image"}
    figure, both = plot.subplots(1, 2, figsize=(11, 5.6), sharey=True, sharex=True)
    for axes, content in zip(both, CONTENTS):
        def size(message: str, codec: str) -> float:
            facts = results.facts[message, content]
            return facts["wire_bytes"].get(keys.get(codec, codec), math.nan) / facts["memory_bytes"]
        dots(axes, results.messages, size, looks)
        axes.set_xlim(0, 3.7)
        axes.axvline(1, color="#888888", linewidth=1.2)
        axes.annotate("C record", (1, -0.5), xytext=(3, 0), textcoords="offset points", fontsize=8, color="#666666",
                      va="center")
        axes.set_title(CONTENTS[content], loc="left", fontsize=10.5)
        for y, message in enumerate(results.messages):
            size_of_ours = results.facts[message, content]["wire_bytes"][OURS]
            axes.annotate(f"{number(size_of_ours)} B", (1, y), ha="right", xycoords=("axes fraction", "data"),
                          xytext=(0, 5), textcoords="offset points", fontsize=8, color="#444444")
    title(figure, "Bytes on the wire, over the bytes of the C record with its arrays",
          f"further left is shorter; in figures: the bytes of {OURS}'s compact layout")
    legend(figure, looks, 0.905)
    figure.subplots_adjust(left=0.2, right=0.985, top=0.78, bottom=0.09, wspace=0.05)
    save(figure, path, results)


# What each shows, and how it is drawn.
DIAGRAMS = {
    **{f"ratio-{content}.svg": (f"Time over memcpy's, {words}", functools.partial(ratio_picture, content=content))
       for content, words in CONTENTS.items()},
    **{f"growth-{content}.svg": (f"Time by the number of elements, {words}", functools.partial(growth_picture, content=content))
       for content, words in CONTENTS.items()},
    "bytes.svg": ("Bytes on the wire", bytes_picture),
}
FIRST_DIAGRAM = "ratio-same.svg"
MORE_DIAGRAMS = "`./dev docs` draws four more diagrams of these results, in build/site/performance."


def diagram_line(name: str) -> str:
    return f"![{DIAGRAMS[name][0]}]({name})\n"


def draw(raw: dict, names: Iterable[str], folder: pathlib.Path) -> None:
    plot.rcParams.update({"svg.fonttype": "none", "svg.hashsalt": "vorn", "font.family": "sans-serif",
                          "font.sans-serif": ["DejaVu Sans", "Verdana", "sans-serif"], "font.size": 9})
    results = Results(raw)
    for name in names:
        _, picture = DIAGRAMS[name]
        picture(results, path=folder / name)


def write_all(raw: dict, folder: pathlib.Path) -> None:
    (folder / "results.md").write_text(markdown(Results(raw)))
    draw(raw, [FIRST_DIAGRAM], folder)


if __name__ == "__main__":
    source = pathlib.Path(sys.argv[1])
    write_all(json.loads(source.read_text()), source.parent)
