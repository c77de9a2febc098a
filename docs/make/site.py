# SPDX-License-Identifier: Apache-2.0
# Builds the site from docs/, and adds pictures made by `nac hex --html`, diagrams of the benchmarks' results, a reference
# made from the descriptions, and the sources that pages refer to.
#
#     python3 docs/make/site.py                 # into build/site
#     python3 docs/make/site.py --into FOLDER   # into FOLDER/site
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "bench"))
import report  # noqa: E402
from described_types import HEADER, ROOT, Type, nac, purposes, sizes, struct_of, types  # noqa: E402

DOCS = ROOT / "docs"
LEFT_OUT = ("make", "CMakeLists.txt")
# Names of types are longer than the theme's sidebar is wide, and what the tool prints is wider than its pages.
STYLE = """\
.bs-sidebar a { overflow-wrap: anywhere; }
.container { max-width: min(96%, 1400px); }
:not(pre) > code { white-space: nowrap; }
pre { overflow-x: auto; }
img { max-width: 100%; }
@media (max-width: 800px) {
  :not(pre) > code, h1, h2, h3, p, li { white-space: normal; overflow-wrap: anywhere; }
  table { display: block; overflow-x: auto; }
}
"""
# Pages from outside of docs/, under their names in the site.
OTHER_PAGES = {"README.md": "index.md", "CHANGELOG.md": "changelog.md", "CONTRIBUTING.md": "contributing.md",
               "ARCHITECTURE.md": "architecture.md", "SECURITY.md": "reporting.md", "docs/schemas": "schemas/index.md"}
PICTURE = re.compile(r"^<!-- picture: (\{.*\}) ?(\w*) -->$", re.M)


class Site:
    def __init__(self, folder: pathlib.Path) -> None:
        self.pages = folder / "site-pages"
        self.built = folder / "site"
        self.pictures = 0
        shutil.rmtree(self.pages, ignore_errors=True)
        self.pages.mkdir(parents=True)

    def collect(self) -> None:
        for path in sorted(DOCS.rglob("*")):
            name = path.relative_to(DOCS)
            if path.is_dir() or name.parts[0] in LEFT_OUT:
                continue
            copy = self.pages / name
            copy.parent.mkdir(parents=True, exist_ok=True)
            if path.suffix == ".md":
                copy.write_text(self.with_diagrams(self.with_pictures(self.with_links(path), name), path, copy.parent))
            else:
                shutil.copy(path, copy)
        for given, name in OTHER_PAGES.items():
            if given.endswith(".md"):
                (self.pages / name).write_text(self.with_links(ROOT / given))

    @staticmethod
    def name_of(path: pathlib.Path) -> pathlib.Path | None:
        """What a file of the tree is in the site; None: it is not there."""
        other = OTHER_PAGES.get(str(path.relative_to(ROOT)))
        if other:
            return pathlib.Path(other)
        if not path.is_relative_to(DOCS) or not path.is_file() or path.relative_to(DOCS).parts[0] in LEFT_OUT:
            return None
        return path.relative_to(DOCS)

    def with_links(self, path: pathlib.Path) -> str:
        """The page; what it links to outside of docs/ is copied into the site."""
        name = self.name_of(path)
        assert name is not None, path
        folder = (self.pages / name).parent

        def link(found: re.Match[str]) -> str:
            mark, text, target = found[1], found[2], found[3]
            file, hash_, anchor = target.partition("#")
            if not file or re.match(r"\w+:", target):
                return found[0]
            leads_to = (path.parent / file).resolve()
            if own := self.name_of(leads_to):
                return f"{mark}[{text}]({os.path.relpath(self.pages / own, folder)}{hash_}{anchor})"
            if leads_to.is_dir() or leads_to.suffix == ".md":
                return f"`{leads_to.relative_to(ROOT)}`"
            # As text, since a browser would rather save a header than show it.
            copy = self.pages / "source" / (str(leads_to.relative_to(ROOT)) + ".txt")
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(leads_to, copy)
            return f"{mark}[{text}]({os.path.relpath(copy, folder)})"

        text = path.read_text()
        if path.name == "README.md" and path.parent == ROOT:  # it begins with what is for those who have the sources
            text = text[text.index("\n# libvorn_nac_user\n") + 1:]
        return re.sub(r"(!?)\[([^\]]*)\]\(([^)\s]+)\)", link, text)

    def schemas(self) -> None:
        text = "# Schemas\n\nWhat each verb of [nac](../tool.md) prints with `--json`, as JSON Schema.\n\n| schema | |\n|---|---|\n"
        for path in sorted((DOCS / "schemas").glob("*.json")):
            text += f"| [{path.name}]({path.name}) | {json.loads(path.read_text())['title']} |\n"
        (self.pages / "schemas/index.md").write_text(text)

    def with_pictures(self, text: str, name: pathlib.Path) -> str:
        def picture(found: re.Match[str]) -> str:
            self.pictures += 1
            record = json.dumps(json.loads(found[1]))
            page = f"pictures/{name.stem}-{self.pictures}.html"
            (self.pages / "pictures").mkdir(exist_ok=True)
            message = nac("encode", "--layout", found[2] or "compact", "-", given=record)
            (self.pages / page).write_text(nac("hex", "--html", "-", given=message))
            lines = nac("hex", "-", given=message).count("\n")
            return (f'<iframe src="{page}" title="The bytes of this message and their meanings" '
                    f'style="width: 100%; height: {lines * 1.55 + 7:.0f}em; border: 1px solid #ccc"></iframe>\n\n'
                    f"A click on a byte or on a meaning marks the other.")
        return PICTURE.sub(picture, text)

    @staticmethod
    def with_diagrams(text: str, path: pathlib.Path, folder: pathlib.Path) -> str:
        """The page of results with all diagrams, drawn from the results beside it."""
        if report.MORE_DIAGRAMS not in text:
            return text
        names = [name for name in report.DIAGRAMS if name != report.FIRST_DIAGRAM]
        report.draw(json.loads((path.parent / "results.json").read_text()), names, folder)
        return text.replace(report.MORE_DIAGRAMS, "\n".join(map(report.diagram_line, names)))

    def reference(self) -> None:
        all_types = types()
        purpose, size = purposes(), sizes()
        text = "# Reference\n\nAll message types, and the tables that travel only inside them. "
        text += f"Made from the library's descriptions, and from {HEADER}.\n\n"
        text += "| type | id | module | |\n|---|---|---|---|\n"
        for each in all_types:
            number = f"0x{each['id']:08X}" if each["id"] is not None else ""
            text += f"| [{each['name']}](#{each['name'].lower()}) | {number} | {each['module'] or ''} | {purpose[each['name']]} |\n"
        for each in all_types:
            text += f"\n## {each['name']}\n\n{purpose[each['name']]} {size[each['name']]}\n\n"
            text += f"```c\n{struct_of(each['name'])}\n```\n\n{self.fields(each)}"
        (self.pages / "reference.md").write_text(text)
        (self.pages / "site.css").write_text(STYLE)

    @staticmethod
    def fields(each: Type) -> str:
        text = "| field | kind | shown as | in the record at | slot at | in the image at |\n|---|---|---|---|---|---|\n"
        for field in each["fields"]:
            kind = f"[{field['kind']}](#{field['table'].lower()})" if field["form"] == "nested table" else f"`{field['kind']}`"
            image = "" if field["image_offset"] is None else field["image_offset"]
            text += f"| {field['name']} | {kind} | {field['display']} | {field['record_offset']} | {field['slot']} | {image} |\n"
        return text

    def build(self) -> None:
        settings = self.pages.parent / "mkdocs.yml"
        settings.write_text((DOCS / "make/mkdocs.yml").read_text() +
                            f"docs_dir: {json.dumps(str(self.pages))}\nsite_dir: {json.dumps(str(self.built))}\n")
        subprocess.run(["mkdocs", "build", "--strict", "--clean", "--quiet", "--config-file", str(settings)], check=True)
        self.searchable()
        # For a server's root, where this site may not be.
        (self.built / "404.html").unlink(missing_ok=True)


    def searchable(self) -> None:
        """Search that works from a disk too: mkdocs's own fetches its index, which browsers refuse there."""
        folder = self.built / "search"
        index = json.loads((folder / "search_index.json").read_text())
        for path in folder.iterdir():
            path.unlink()
        (folder / "search_index.js").write_text(f"siteSections({json.dumps(index['docs'])});\n")
        shutil.copy(DOCS / "make/search.js", folder / "main.js")


def main() -> int:
    folder = pathlib.Path(sys.argv[2]).resolve() if sys.argv[1:2] == ["--into"] else ROOT / "build"
    site = Site(folder)
    site.collect()
    site.reference()
    site.schemas()
    site.build()
    print(f"{site.built}/index.html: {sum(1 for _ in site.built.rglob('*.html'))} pages, {site.pictures} pictures")
    return 0


if __name__ == "__main__":
    sys.exit(main())
