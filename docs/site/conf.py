"""Sphinx over the documents that scripts/site.sh gathers."""

project = "zelk-sss"
author = "the zelk-sss authors"
html_title = project
html_theme = "furo"
extensions = ["myst_nb"]
myst_heading_anchors = 6  # as the forges name them, for links to headings
nb_execution_mode = "off"
html_copy_source = False
html_show_copyright = False
html_show_sphinx = False
# Blocks of commands as people type them, such as … for what is left out, are no faults.
suppress_warnings = ["misc.highlighting_failure"]
