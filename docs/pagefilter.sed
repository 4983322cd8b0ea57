# Pages link to files as they lie in the project. In the manual all pages lie in one folder, README.md is its
# main page, and an example or a header is a page. Doxygen can follow a link to a page by itself, but not where
# a blank is in the path of the project.
s,\]\((\.\./)?README\.md\),](@ref index),g
s,\]\((\.\./|docs/)?([A-Za-z0-9-]+)(\.([A-Za-z-]+))?\.md\),](@ref page_\2\4),g
s,\]\((\.\./)?examples/\),](examples.html),g
s,\]\((\.\./)?examples/([A-Za-z0-9_/]+\.cpp)\),](@ref \2),g
s,\]\((\.\./)?qtagent/([a-z]+/)?([a-z_]+\.h)\),](@ref \3),g
s,\]\(\.\./,](,g

# Doxygen takes `a 'b' c` for code only between double marks.
s,`([^`]*)`,\x01\1\x02,g
s,\x01([^\x02']*'[^\x02]*)\x02,``\1``,g
s,[\x01\x02],`,g
