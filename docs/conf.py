"""Sphinx pages of libves; docs/build names the folder of Doxygen's XML."""
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

project = "libves"
extensions = ["breathe", "myst_parser", "math_as_mathml", "reference_pages"]
myst_enable_extensions = ["dollarmath", "colon_fence"]
myst_heading_anchors = 3
html_math_renderer = "mathml"

breathe_projects = {"ves": os.environ["VES_DOXYGEN_XML"]}
breathe_default_project = "ves"
breathe_domain_by_extension = {"h": "c", "hpp": "cpp"}
ves_header = "../include/ves.h"
ves_cpp_headers = ["../include/ves_blocks.hpp", "../include/ves_operators.hpp", "../include/ves.hpp",
                   "../include/ves_groups.hpp"]

# Names of the C library and of MPI, the structures behind the opaque handles, and names of ves.h in
# C++, which cannot refer to what is described as C.
nitpick_ignore_regex = [("c:identifier", r"MPI_\w+|size_t|Ves\w+Base"),
                        ("cpp:identifier", r"MPI_\w+|V(es|ES_)\w+|ves")]

html_theme = "furo"
html_title = "libves"
# Debian's copy of the theme has these for its button alone, and not where the system asks for dark.
html_theme_options = {"dark_css_variables": {
    "color-problematic": "#ee5151",
    "color-foreground-primary": "#ffffffcc",
    "color-foreground-secondary": "#9ca0a5",
    "color-foreground-muted": "#81868d",
    "color-foreground-border": "#666666",
    "color-background-primary": "#131416",
    "color-background-secondary": "#1a1c1e",
    "color-background-hover": "#1e2124ff",
    "color-background-hover--transparent": "#1e212400",
    "color-background-border": "#303335",
    "color-background-item": "#444",
    "color-brand-primary": "#2b8cee",
    "color-brand-content": "#368ce2",
    "color-highlighted-background": "#083563",
    "color-api-keyword": "var(--color-foreground-secondary)",
    "color-highlight-on-target": "#333300",
}}
# Browsers set formulas well only in a font made for it, which not every machine has.
html_static_path = ["style.css",
                    "/usr/share/texmf/fonts/opentype/public/lm-math/latinmodern-math.otf"]
html_css_files = ["style.css"]
html_copy_source = False
html_show_sphinx = False
html_show_copyright = False
pygments_style = "default"
