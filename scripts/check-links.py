#!/usr/bin/env python3
"""check-links.py HTML-FOLDER SOURCE...: every link of the pages, and of the Markdown files and folders
they are made of, leads to a file that is there, and to a place in it that is there."""
import html.parser
import pathlib
import re
import sys
import urllib.parse


class Page(html.parser.HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.links, self.places = [], set()
        self.feed(path.read_text(encoding="utf-8", errors="replace"))

    def handle_starttag(self, tag, attributes):
        values = dict(attributes)
        self.places.update(value for key in ("id", "name") if (value := values.get(key)))
        self.links += [value for key in ("href", "src") if (value := values.get(key))]


# Doxygen names these on top of pages whose private members they would list.
SUMMARIES = ("nested-classes", "friends", "related")


def is_elsewhere(link):
    return re.match(r"[a-z][a-z0-9+.-]*:", link) or link.startswith("//")


folder = pathlib.Path(sys.argv[1])
pages = {path.resolve(): Page(path) for path in sorted(folder.glob("*.html"))}
bad, count = [], 0
for path, page in pages.items():
    for link in page.links:
        if is_elsewhere(link):
            continue
        count += 1
        name, _, place = link.partition("#")
        target = (path.parent / urllib.parse.unquote(name)).resolve() if name else path
        if not target.exists():
            bad.append(f"{path.name}: {link}")
        elif place in SUMMARIES:
            continue
        elif place and target in pages and urllib.parse.unquote(place) not in pages[target].places:
            bad.append(f"{path.name}: there is no place {link}")

sources = [file for name in map(pathlib.Path, sys.argv[2:])
           for file in (sorted(name.rglob("*.md")) if name.is_dir() else [name])]
for file in sources:
    text = re.sub(r"^```.*?^```", "", file.read_text(encoding="utf-8"), flags=re.M | re.S)
    for link in re.findall(r"\]\(([^)\s]+)\)", text):
        count += 1
        if not is_elsewhere(link) and not (file.parent / link.partition("#")[0]).exists():
            bad.append(f"{file}: {link}")

print("\n".join(bad), end="\n" if bad else "")
sys.exit(f"{len(bad)} of {count} links lead nowhere" if bad else None)
