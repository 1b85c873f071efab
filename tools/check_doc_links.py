"""Check that every link of the built documentation site leads to a page and an anchor in it.

    python tools/check_doc_links.py build/docs/html

Links to other sites are not followed. The exit status is 1 if a link leads nowhere.
"""

import sys
from collections.abc import Iterator
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote, urlsplit


class Page(HTMLParser):
    """The links of a page and the anchors that it has."""

    def __init__(self, path: Path) -> None:
        super().__init__()
        self.links: list[str] = []
        self.anchors: set[str] = set()
        self.feed(path.read_text(encoding="utf-8"))

    def has(self, anchor: str) -> bool:
        """Whether the page has an anchor; the empty one is its start."""
        return not anchor or anchor in self.anchors

    def handle_starttag(self, tag: str, attrs: list[tuple[str, str | None]]) -> None:
        """Note what a tag links to, and its anchor."""
        for name, value in attrs:
            if value and name in ("href", "src"):
                self.links.append(value)
            elif value and (name == "id" or (name == "name" and tag == "a")):
                self.anchors.add(value)


def broken_links(site: Path) -> Iterator[str]:
    """What is wrong with each link inside the site that leads nowhere."""
    pages = {path.resolve(): Page(path) for path in sorted(site.rglob("*.html"))}
    for path, page in pages.items():
        for link in page.links:
            parts = urlsplit(link)
            if parts.scheme or parts.netloc:
                continue
            target = path.parent / unquote(parts.path) if parts.path else path
            target = target.resolve()
            name = path.relative_to(site.resolve())
            if not target.exists():
                yield f"{name}: {link}: no such file"
            elif target in pages and not pages[target].has(unquote(parts.fragment)):
                yield f"{name}: {link}: no such anchor"


def main() -> int:
    """Check the site of the command line and return the exit status."""
    site = Path(sys.argv[1])
    broken = list(broken_links(site))
    print("\n".join(broken) or f"{site}: all links inside lead somewhere")
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
