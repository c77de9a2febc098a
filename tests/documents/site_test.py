# SPDX-License-Identifier: Apache-2.0
# The site: it builds without a warning, each link in it leads to a page or an anchor of it, and nothing is loaded from elsewhere.
import html.parser
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest
import urllib.parse

ROOT = pathlib.Path(__file__).resolve().parents[2]
ON_RECORD = (ROOT / "tests/reference/descriptions.jsonl").read_text().splitlines()
TYPES = sum(json.loads(line)["id"] is not None for line in ON_RECORD)


class Page(html.parser.HTMLParser):
    def __init__(self, path: pathlib.Path) -> None:
        super().__init__()
        self.links: list[str] = []
        self.loads: list[str] = []
        self.anchors: set[str] = set()
        self.feed(path.read_text())

    def handle_starttag(self, tag: str, attrs: list[tuple[str, str | None]]) -> None:
        given = dict(attrs)
        self.anchors |= {value for key in ("id", "name") if (value := given.get(key))}
        if tag == "a" and given.get("href"):
            self.links.append(str(given["href"]))
        for key in ("src", "href"):
            if tag in ("script", "img", "link", "iframe") and given.get(key):
                self.loads.append(str(given[key]))


class Site(unittest.TestCase):
    folder: tempfile.TemporaryDirectory[str]

    @classmethod
    def setUpClass(cls) -> None:
        cls.folder = tempfile.TemporaryDirectory()
        cls.done = subprocess.run([sys.executable, ROOT / "docs/make/site.py", "--into", cls.folder.name],
                                  capture_output=True, text=True, timeout=300)
        cls.site = pathlib.Path(cls.folder.name) / "site"
        cls.pages = {path: Page(path) for path in sorted(cls.site.rglob("*.html"))}

    @classmethod
    def tearDownClass(cls) -> None:
        cls.folder.cleanup()

    def test_builds_without_a_warning(self) -> None:
        self.assertEqual((self.done.returncode, self.done.stderr), (0, ""), self.done.stdout)
        self.assertGreater(len(self.pages), 15)

    def test_links_lead_to_pages_and_anchors_of_the_site(self) -> None:
        count = 0
        for path, page in self.pages.items():
            for link in page.links + page.loads:
                parts = urllib.parse.urlsplit(link)
                if parts.scheme or parts.netloc or link in ("#", "."):
                    continue
                count += 1
                with self.subTest(page=path.name, link=link):
                    found = (path.parent / urllib.parse.unquote(parts.path)).resolve() if parts.path else path
                    found = found / "index.html" if found.is_dir() else found
                    self.assertTrue(found.exists())
                    if parts.fragment and found in self.pages:
                        self.assertIn(urllib.parse.unquote(parts.fragment), self.pages[found].anchors)
        self.assertGreater(count, 200)
        print(f"count: {count} links of the site lead to a page or an anchor of it")

    def test_results_have_their_diagrams(self) -> None:
        for compiler in ("gcc", "clang"):
            page = self.pages[self.site / f"performance/{compiler}/results.html"]
            diagrams = [link for link in page.loads if link.endswith(".svg")]
            self.assertEqual(len(diagrams), 5)
            for name in diagrams:
                self.assertIn("<svg", (self.site / "performance" / compiler / name).read_text())

    def test_nothing_is_loaded_from_elsewhere(self) -> None:
        for path, page in self.pages.items():
            for link in page.loads:
                with self.subTest(page=path.name, link=link):
                    self.assertFalse(urllib.parse.urlsplit(link).netloc)

    def test_reference_has_every_type(self) -> None:
        reference = self.pages[self.site / "reference.html"]
        header = (ROOT / "nac/nac_messages.h").read_text()
        names = [line.split("(")[1].split(")")[0].lower() for line in header.splitlines()
                 if line.startswith("NAC_MESSAGE_FUNCTIONS(")]
        self.assertEqual(len(names), TYPES)
        self.assertLessEqual(set(names), reference.anchors)

    def test_every_message_and_record_is_on_the_page_of_fields(self) -> None:
        page = (ROOT / "docs/fields.md").read_text()
        for each in map(json.loads, ON_RECORD):
            self.assertEqual(page.count(f"| `{each['name']}` |"), 1, each["name"])
            row = page.split(f"| `{each['name']}` |")[1].splitlines()[0]
            self.assertIn(each["fields"][-1]["name"] + " `", row)

    def test_pages_of_the_project_and_schemas_are_in_it(self) -> None:
        for name in ("changelog", "contributing", "architecture", "reporting", "fields"):
            self.assertIn(self.site / f"{name}.html", self.pages)
        links = self.pages[self.site / "schemas/index.html"].links
        for path in (ROOT / "docs/schemas").glob("*.json"):
            self.assertIn(path.name, links)

    def test_the_home_page_is_the_readme(self) -> None:
        home = (self.site / "index.html").read_text()
        for heading in ('<h1 id="libvorn_nac_user">', "<strong>Exact to the byte.</strong>", "Two processes in two terminals", "nac send --bus ipc://"):
            self.assertIn(heading, home)

    def test_pictures_are_pages_of_the_tool(self) -> None:
        pictures = sorted((self.site / "pictures").glob("*.html"))
        self.assertEqual(len(pictures), (ROOT / "docs/format.md").read_text().count("<!-- picture:"))
        for path in pictures:
            self.assertIn("root reference", path.read_text())


if __name__ == "__main__":
    unittest.main()
