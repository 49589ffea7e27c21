# Converts a page for Doxygen. Headings get identifiers that are unique in all pages, for links. Links to
# files that are not pages become plain text. Fences keep only their language. Images keep only their file
# name, for which Doxygen searches IMAGE_PATH.

function page_of(path) {
  sub(/.*\//, "", path)
  sub(/\.md$/, "", path)
  return path
}

# The identifier of a heading, unique in all pages.
function anchor(page, name) { return page "-" name }

/^ *```/ {
  inside = !inside
  sub(/```console.*/, "```{.sh}")
  sub(/```(ld|text).*/, "```")
  if (match($0, /```[a-z]+ /)) $0 = substr($0, 1, RLENGTH - 1) # the name of a file
  if (match($0, /```[a-z]+$/)) $0 = "```{." substr($0, RSTART + 3) "}"
  print
  next
}

!inside && /^##/ {
  name = tolower($0)
  sub(/^#+ +/, "", name)
  gsub(/[^a-z0-9_ -]/, "", name)
  gsub(/ /, "-", name)
  print $0 " {#" anchor(page_of(FILENAME), name) "}"
  next
}

!inside {
  rest = $0
  line = ""
  while (match(rest, /\[[^]]*\]\([^)]*\)/)) {
    link = substr(rest, RSTART, RLENGTH)
    line = line substr(rest, 1, RSTART - 1)
    rest = substr(rest, RSTART + RLENGTH)
    text = substr(link, 1, index(link, "]"))
    target = substr(link, index(link, "](") + 2)
    sub(/\)$/, "", target)
    mark = index(target, "#")
    if (line ~ /!$/) {
      sub(/.*\//, "", target)
      line = line text "(" target ")"
    } else if (target ~ /^[a-z]+:/) {
      line = line link
    } else if (mark) {
      page = mark > 1 ? substr(target, 1, mark - 1) : FILENAME
      line = line text "(#" anchor(page_of(page), substr(target, mark + 1)) ")"
    } else if (target ~ /\.md$/) {
      line = line link
    } else {
      line = line substr(text, 2, length(text) - 2)
    }
  }
  gsub(/\]\(#/, "](#" anchor(page_of(FILENAME), ""), rest) # a link that began in an earlier line
  print line rest
  next
}

{ print }
