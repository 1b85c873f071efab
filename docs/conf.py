"""Sphinx configuration of the documentation site. `make docs` builds it into build/docs/html."""

import logging
from importlib.metadata import version as installed_version
from typing import Any

project = "Nimbrel"
release = installed_version("nimbrel")
author = "the Nimbrel developers"
language = "en"

extensions = [
    "myst_nb",  # pages in Markdown; notebooks are run at build time
    "sphinx.ext.autodoc",  # the API reference, from the docstrings
    "sphinx.ext.napoleon",  # Google style docstrings
]

html_theme = "furo"
html_title = "Nimbrel"
html_show_copyright = False
html_copy_source = False
html_show_sourcelink = False
html_theme_options = {"navigation_with_keys": True}
html_static_path = ["_static"]
html_css_files = ["site.css"]

# The pages are built without an MPI library.
autodoc_mock_imports = ["mpi4py"]

# Words between single backquotes in docstrings are code.
default_role = "code"

# Links to headings of other pages: page.md#heading.
myst_heading_anchors = 4
myst_enable_extensions = ["colon_fence"]

# The notebook client reports each start of a kernel otherwise.
logging.getLogger("traitlets").setLevel(logging.WARNING)

# A notebook that fails or that prints to standard error fails the build.
nb_execution_mode = "force"
nb_execution_raise_on_error = True
nb_execution_timeout = 300
nb_execution_show_tb = True
nb_output_stderr = "show"
nb_merge_streams = True

autodoc_typehints = "none"
autodoc_member_order = "bysource"
napoleon_numpy_docstring = False
napoleon_use_ivar = True  # attributes as one list, which the members do not repeat


def mark_examples(
    _app: Any, _what: str, _name: str, _obj: object, _options: object, lines: list[str]
) -> None:
    """Mark the indented blocks of a docstring as code; the section lists have no line before."""
    marked: list[str] = []
    for place, line in enumerate(lines):
        if line.startswith("    ") and place > 1 and not lines[place - 1]:
            before = lines[place - 2]
            if before and not before.startswith(" "):
                marked += ["::", ""]
        marked.append(line)
    lines[:] = marked


def setup(app: Any) -> None:
    """Run before napoleon, which turns sections into lists."""
    app.connect("autodoc-process-docstring", mark_examples, priority=400)
