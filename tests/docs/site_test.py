"""The site of the documentation: it builds without a warning, and everything that it refers to is there."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree
from html.parser import HTMLParser
from urllib.parse import unquote, urlsplit

from documentation import ROOT, all_pages, main, prose_of, read, site_pages

WORDS_MIN = 80
MADE_BY_RUNS = {"bench/results"}
LOADING = {("script", "src"), ("img", "src"), ("link", "href"), ("iframe", "src"), ("source", "src"), ("video", "src")}


class Page(HTMLParser):
    """What a page refers to, what it makes a browser load, and the places in it that others may refer to."""

    def __init__(self, text):
        super().__init__()
        self.references, self.loaded, self.anchors = [], [], set()
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("id", "name") and value:
                self.anchors.add(value)
            if name in ("href", "src") and value:
                self.references.append(value)
                # Canonical addresses and the like are told, not loaded.
                if (tag, name) in LOADING and dict(attributes).get("rel") != "canonical":
                    self.loaded.append(value)


class Site(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="fsys-docs-")
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        cls.build = subprocess.run(["mkdocs", "build", "--strict", "--site-dir", os.path.join(cls.folder, "site")],
                                   cwd=ROOT, capture_output=True, text=True)
        cls.pages = {}
        for place, _, names in os.walk(os.path.join(cls.folder, "site")):
            for name in names:
                if name.endswith(".html") and name != "404.html":
                    path = os.path.join(place, name)
                    with open(path, encoding="utf-8") as file:
                        cls.pages[path] = Page(file.read())

    def test_builds_without_a_warning(self):
        self.assertEqual(self.build.returncode, 0, self.build.stderr)
        self.assertNotIn("WARNING", self.build.stderr)

    def test_every_page_is_built_and_reached_from_the_navigation(self):
        navigation = read("mkdocs.yml").split("\nnav:\n")[1]
        for page in site_pages():
            self.assertRegex(navigation, rf"(?m)[ :-]{re.escape(page)}$")
            self.assertIn(os.path.join(self.folder, "site", page[:-3] + ".html"), self.pages)

    def test_every_link_leads_to_a_file_and_a_place_in_it(self):
        count = 0
        for path, page in self.pages.items():
            for reference in page.references:
                target = urlsplit(reference)
                if target.scheme or target.netloc:
                    continue
                count += 1
                file = os.path.normpath(os.path.join(os.path.dirname(path), unquote(target.path))) if target.path else path
                if os.path.isdir(file):
                    file = os.path.join(file, "index.html")
                self.assertTrue(os.path.isfile(file), f"{path}: {reference}")
                if target.fragment and file in self.pages:
                    self.assertIn(unquote(target.fragment), self.pages[file].anchors | {"__search"}, f"{path}: {reference}")
        self.assertGreater(count, 500)

    def test_nothing_is_loaded_from_another_host(self):
        for path, page in self.pages.items():
            for reference in page.loaded:
                self.assertEqual(urlsplit(reference).netloc, "", f"{path}: {reference}")
        for place, _, names in os.walk(os.path.join(self.folder, "site")):
            for name in names:
                if name.endswith(".css"):
                    with open(os.path.join(place, name), encoding="utf-8") as file:
                        self.assertNotRegex(file.read(), r"(url\(|@import)\s*['\"]?(https?:)?//", name)


class Texts(unittest.TestCase):
    def test_no_page_is_empty(self):
        for page in all_pages():
            self.assertGreaterEqual(len(prose_of(page).split()), WORDS_MIN, page)

    def test_links_between_the_pages_of_the_source_resolve(self):
        for page in all_pages():
            for target in re.findall(r"\]\(([^)#]+)(?:#[^)]*)?\)", prose_of(page)):
                if not urlsplit(target).scheme:
                    self.assertTrue(os.path.exists(os.path.join(ROOT, os.path.dirname(page), target)), f"{page}: {target}")

    def test_files_of_the_source_that_are_named_exist(self):
        named = re.compile(r"`((?:ole|tests|tools|docs|scripts|examples|fuzz|bench|cmake)/[\w./-]+)`")
        count = 0
        for page in all_pages():
            for path in named.findall(prose_of(page)):
                count += 1
                # What a reader is to make has a name that stands for others.
                if not re.search(r"Name|name_|TARGET", path) and path not in MADE_BY_RUNS:
                    self.assertTrue(os.path.exists(os.path.join(ROOT, path)), f"{page}: {path}")
        self.assertGreater(count, 50)

    def test_every_decision_stands_in_the_index(self):
        index = read("docs", "decisions", "index.md")
        for name in os.listdir(os.path.join(ROOT, "docs", "decisions")):
            if name != "index.md":
                self.assertIn(f"({name})", index)

    def test_drawings_are_whole_and_suit_light_and_dark(self):
        folder = os.path.join(ROOT, "docs", "images")
        drawings = [name for name in os.listdir(folder) if name.endswith(".svg")]
        self.assertGreaterEqual(len(drawings), 7)
        for name in drawings:
            text = read("docs", "images", name)
            root = ElementTree.fromstring(text)
            self.assertTrue(root.findtext("{http://www.w3.org/2000/svg}title"), name)
            self.assertTrue(root.findtext("{http://www.w3.org/2000/svg}desc"), name)
            self.assertIn("@media (prefers-color-scheme: dark)", text, name)
            self.assertNotRegex(text.replace("http://www.w3.org/2000/svg", ""), r"https?:|xlink", name)
            self.assertTrue(any(name in read(page) for page in all_pages()), f"{name} is shown nowhere")


if __name__ == "__main__":
    main()
