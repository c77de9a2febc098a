# SPDX-License-Identifier: Apache-2.0
# The layout of the sources: what ARCHITECTURE.md says of folders, files and includes is so.
import fnmatch
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
ARCHITECTURE = (ROOT / "ARCHITECTURE.md").read_text()
PUBLIC_HEADERS = ["bus/message_functions.h", "bus/vorn_bus_api.h", "runtime/zeb_osal_api.h", "inspect/vorn_inspect.h"]
# Public too, over one of those.
OVER_PUBLIC_HEADERS = {"nac/nac_messages.h": ["bus/message_functions.h"], "vorn/vorn_bus.h": ["bus/vorn_bus_api.h"]}
# C++ over the public headers of all libraries, whatever folder it stands in.
CPP_HEADERS = ["bus/typed_functions.hpp", "nac/message_functions.hpp", "nac/nac.hpp", "nac/owned_records.hpp", "nac/typed_bus.hpp"]


# Without asking git: an exported tree is tested too.
FILES = sorted(str(path.relative_to(ROOT)) for top in ROOT.iterdir() if top.name not in ("build", ".git")
               for path in ([top] if top.is_file() else top.rglob("*")) if path.is_file() and "__pycache__" not in path.parts)


def files(*patterns: str) -> list[str]:
    return [path for path in FILES if any(fnmatch.fnmatch(path, pattern) for pattern in patterns)]


SOURCES = files("*.c", "*.cpp", "*.h", "*.hpp")
SCRIPTS = files("*.py", "*.cmake", "*CMakeLists.txt", "dev", ".ci/run", "*.sh", "*Makefile", "*.cjs", "*.lua", "*.map", "*.in",
                "*.list", "*.supp", "packaging/debian/rules", "packaging/debian/control")


def own_includes(path: str) -> list[str]:
    text = (ROOT / path).read_text()
    return re.findall(r'^#include "([^"]+)"', text, re.MULTILINE)


class Layout(unittest.TestCase):
    def test_folders_include_only_what_they_may(self) -> None:
        rows = re.findall(r"^\| `(\w+)` \|[^|]*\|([^|]*)\|$", ARCHITECTURE, re.MULTILINE)
        allowed = {folder: {folder, *re.findall(r"`([\w/.]+)`", others)} for folder, others in rows}
        self.assertGreaterEqual(len(allowed), 6)
        own_project = files("examples/lease/*")  # over what is installed
        for path in sorted(set(SOURCES) - set(CPP_HEADERS) - set(own_project)):
            folder = path.split("/")[0]
            for included in own_includes(path):
                with self.subTest(path=path, included=included):
                    self.assertTrue({included, included.split("/")[0]} & allowed[folder])
                    self.assertTrue((ROOT / included).exists())

    def test_public_headers_include_nothing_of_ours(self) -> None:
        for path in PUBLIC_HEADERS:
            self.assertEqual(own_includes(path), [], path)
        for path, included in OVER_PUBLIC_HEADERS.items():
            self.assertEqual(own_includes(path), included, path)

    def test_the_cpp_interface_stands_on_public_headers_alone(self) -> None:
        self.assertEqual(files("*.hpp"), CPP_HEADERS)
        for path in CPP_HEADERS:
            self.assertLessEqual(set(own_includes(path)), {*PUBLIC_HEADERS, *OVER_PUBLIC_HEADERS, *CPP_HEADERS}, path)

    def test_architecture_names_every_folder_of_sources_and_only_what_exists(self) -> None:
        named = re.findall(r"`((?:\w+/)+(?:[\w.*-]+)?)`", ARCHITECTURE)
        for pattern in named:
            self.assertTrue(any(fnmatch.fnmatch(path, pattern.rstrip("/") + ("/*" if pattern.endswith("/") else ""))
                                for path in FILES), f"{pattern} does not exist")
        folders = {str(pathlib.PurePath(path).parent) + "/" for path in SOURCES}
        for folder in sorted(folders):
            self.assertTrue(any(name.startswith(folder) for name in named), f"{folder} is not named")

    def test_file_names_are_unique(self) -> None:
        # Names that tools give, one a folder.
        repeated = {"CMakeLists.txt", "README.md", "__init__.py", ".clang-tidy"}
        seen: dict[str, str] = {}
        for path in FILES:
            name = path.split("/")[-1]
            if name in repeated or path.startswith("docs/performance/"):
                continue
            self.assertFalse(name in seen, f"{path} and {seen.get(name)}")
            seen[name] = path

    def test_every_file_begins_with_its_licence(self) -> None:
        for path in SOURCES + SCRIPTS:
            first_lines = (ROOT / path).read_text().splitlines()[:4]
            self.assertTrue(any("SPDX-License-Identifier: Apache-2.0" in line for line in first_lines), path)

    def test_links_between_documents_lead_somewhere(self) -> None:
        for document in files("*.md"):
            for target in re.findall(r"\]\(([^)#:]+)\)", (ROOT / document).read_text()):
                with self.subTest(document=document, target=target):
                    self.assertTrue((ROOT / document).parent.joinpath(target).exists())


if __name__ == "__main__":
    unittest.main()
