#!/usr/bin/env python3
"""Checks what the documents name: links and their anchors, files in backticks, options, settings."""
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(sys.argv.pop(1))
FOLDERS = {"bench", "camangles", "docs", "elements", "fuzz", "host", "platform", "scripts",
           "simulator", "src", "tests"}
# Where headers are that documents name as they are included.
INCLUDES = ["platform/base/include", "platform/framework/include", "camangles/include", "camangles"]
LINK = re.compile(r"\]\(([^)\s]+)\)|<img[^>]* src=\"([^\"]+)\"")
FENCE = re.compile(r"^```.*?^```", re.MULTILINE | re.DOTALL)
CODE = re.compile(r"`([^`\n]+)`")
# Written by programs while they run.
WRITTEN = {"vorn-host.conf"}
SOURCE_NAME = re.compile(r"[\w.*-]+\.(c|cpp|h|hpp|py|conf|prs)")


def anchors(text):
    """A page's headings as a browser addresses them."""
    headings = re.findall(r"^#+ +(.*)$", FENCE.sub("", text), re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def broken_links(tree, page):
    text = page.read_text()
    for link in LINK.finditer(text):
        target = link.group(1) or link.group(2)
        if re.match(r"[a-z]+:", target):
            continue
        path, _, anchor = target.partition("#")
        file = page.parent / path if path else page
        if not file.exists():
            yield f"{page.relative_to(tree)}: link to {target}: there is no such file"
        elif anchor and anchor not in anchors(file.read_text()):
            yield f"{page.relative_to(tree)}: link to {target}: there is no such heading"


def exists(tree, name):
    """Whether something in the tree bears the name; stars stand for anything."""
    first = name.split("/")[0]
    if first in ("vorn", "camangles") and name.endswith((".h", ".hpp", ".c")):
        return any(True for include in INCLUDES for _ in (tree / include).glob(name)) or \
            any(True for _ in tree.glob(name))
    if "/" in name:
        return first not in FOLDERS or any(True for _ in tree.glob(name.rstrip("/")))
    return any(True for folder in FOLDERS for _ in (tree / folder).rglob(name))


def missing_files(tree, page):
    for code in CODE.finditer(FENCE.sub("", page.read_text())):
        for word in code.group(1).strip("<>").split():
            name = re.sub(r"[:#]\d+$", "", word)
            if "..." in name or name in WRITTEN or not re.fullmatch(r"[\w./*-]+", name):
                continue
            if ("/" in name or SOURCE_NAME.fullmatch(name)) and not exists(tree, name):
                yield f"{page.relative_to(tree)}: `{name}`: there is no such file"


def told_texts(text):
    """The first column of the tables of messages; commands and settings stand in the second."""
    troubles = text[text.index("## When something is wrong"):]
    rows = re.findall(r"^\| (`.*?) \| .* \|$", troubles, re.MULTILINE)
    return [code for row in rows for code in CODE.findall(row)]


def program_texts(tree):
    """All that programs may say: their string literals, neighbours joined, and what scripts hold."""
    texts = []
    for folder in ("host", "src", "platform", "elements", "simulator"):
        for file in (tree / folder).rglob("*.cpp"):
            texts.append(re.sub(r"\"\s*\"", "", file.read_text()))
    texts += [file.read_text() for file in (tree / "run", tree / "scripts/lib.sh")]
    return "\n".join(texts)


def pages(tree):
    return [tree / "README.md", *sorted((tree / "docs").glob("*.md"))]


class Finds(unittest.TestCase):
    """What is wrong is found."""

    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.tree = pathlib.Path(holder.name)
        (self.tree / "platform/base/include/vorn").mkdir(parents=True)
        (self.tree / "platform/base/include/vorn/log.h").touch()
        (self.tree / "docs").mkdir()
        (self.tree / "docs/page.md").write_text("# A page's title\n\n```\n# no heading\n```\n")

    def problems(self, text):
        page = self.tree / "README.md"
        page.write_text(text)
        return [*broken_links(self.tree, page), *missing_files(self.tree, page)]

    def test_what_is_there_is_good(self):
        self.assertEqual(self.problems(
            "[a](docs/page.md) [b](docs/page.md#a-pages-title) [c](https://example.invalid/x)\n"
            "`vorn/log.h` `<vorn/log.h>` `log.h` `docs/` `docs/*.md` `platform/base/include/vorn/log.h:12`\n"
            "`out/<time>/` `1280x720` `30000/1001`\n```\ndocs/none.md\n```\n"), [])

    def test_what_is_not_there_is_told(self):
        for text, told in [
                ("[a](docs/none.md)", "link to docs/none.md: there is no such file"),
                ('<img src="docs/none.png">', "link to docs/none.png: there is no such file"),
                ("[a](docs/page.md#none)", "link to docs/page.md#none: there is no such heading"),
                ("[a](docs/page.md#no-heading)",
                 "link to docs/page.md#no-heading: there is no such heading"),
                ("`docs/none.md`", "`docs/none.md`: there is no such file"),
                ("`vorn/none.h`", "`vorn/none.h`: there is no such file"),
                ("`none.cpp`", "`none.cpp`: there is no such file")]:
            with self.subTest(text=text):
                self.assertEqual(self.problems(text), ["README.md: " + told])


class Documents(unittest.TestCase):
    def test_links_lead_somewhere(self):
        self.assertEqual([p for page in pages(SOURCE) for p in broken_links(SOURCE, page)], [])

    def test_files_that_are_named_exist(self):
        self.assertEqual([p for page in pages(SOURCE) for p in missing_files(SOURCE, page)], [])

    def test_every_page_is_named_in_the_readme(self):
        readme = (SOURCE / "README.md").read_text()
        self.assertEqual([page.name for page in (SOURCE / "docs").glob("*.md")
                          if f"(docs/{page.name})" not in readme], [])

    def test_running_tells_of_every_option_of_run(self):
        text = (SOURCE / "docs/running.md").read_text()
        help_text = subprocess.run([SOURCE / "run", "--help"], check=True, capture_output=True,
                                   text=True).stdout
        options = re.findall(r"^  (?:-\w, )?(--[a-z-]+)", help_text, re.MULTILINE)
        self.assertGreater(len(options), 10)
        self.assertEqual([o for o in options if not re.search(re.escape(o) + r"\b", text)], [])

    def test_running_tells_of_every_setting(self):
        text = (SOURCE / "docs/running.md").read_text()
        sample = (SOURCE / "host/desk.conf").read_text()
        keys = set(re.findall(r"^#?([a-z][a-z.-]+)=", sample, re.MULTILINE))
        self.assertGreater(len(keys), 15)
        self.assertEqual(sorted(key for key in keys if f"`{key}`" not in text), [])

    def test_messages_that_running_explains_are_said(self):
        told = told_texts((SOURCE / "docs/running.md").read_text())
        self.assertGreater(len(told), 30)
        said = program_texts(SOURCE)
        self.assertEqual([text for text in told
                          if any(part.strip() not in said for part in text.split("…"))], [])


if __name__ == "__main__":
    unittest.main()
