# SPDX-License-Identifier: Apache-2.0
# Makes a page of docs/ one of the reference, for scripts/document.sh: headings get the names that links call them by, links
# to other pages of the reference and to the examples lead there, those to files that it has not lose their target.
BEGIN {
  count = split(ENVIRON["KELNN_REFERENCE_PAGES"], names, " ")
  for (i = 1; i <= count; ++i) pages[names[i]] = 1
}
FNR == 1 {
  page = FILENAME
  sub(/.*\//, "", page)
  sub(/\.md$/, "", page)
}
function slug(title) {
  title = tolower(title)
  gsub(/\]\([^)]*\)/, "", title)
  gsub(/[^a-z0-9_ -]/, "", title)
  gsub(/ /, "-", title)
  return title
}
/^ *```/          { is_fenced = !is_fenced; print; next }
is_fenced         { print; next }
/^# /             { print $0 " {#" page "}"; next }
/^##+ /           { title = $0; sub(/^#+ +/, "", title); print $0 " {#" page "-" slug(title) "}"; next }
{
  # Doxygen takes the "%" off a word that begins with it, but not behind a quotation mark.
  gsub(/"%/, "\001")
  gsub(/%[a-z]/, "%&")
  gsub(/\001/, "\"%")
  text = ""
  while (match($0, /\[[^]]*\]\([^)]*\)/)) {
    link = substr($0, RSTART, RLENGTH)
    text = text substr($0, 1, RSTART - 1)
    $0 = substr($0, RSTART + RLENGTH)
    words = target = link
    sub(/\]\(.*/, "", words)
    sub(/^\[/, "", words)
    sub(/.*\]\(/, "", target)
    sub(/\)$/, "", target)
    anchor = target
    if (!sub(/^[^#]*#/, "", anchor)) anchor = ""
    file = target
    sub(/#.*/, "", file)
    sub(/\.md$/, "", file)
    if (file == "") file = page
    if (target ~ /^[a-z]+:/) text = text link
    else if (file in pages) text = text "[" words "](@ref " file (anchor ? "-" anchor : "") ")"
    else if (file ~ /^\.\.\/examples\/[a-z_]+\.(c|cpp|py)$/) text = text "[" words "](@ref " substr(file, 13) ")"
    else text = text words
  }
  print text $0
}
