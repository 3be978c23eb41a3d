# SPDX-License-Identifier: Apache-2.0
# Turns the comments of a public header into what Doxygen knows, for scripts/document.sh: "returns" and
# the columns of parameters become its commands, so that it checks the names against the declarations.
FNR == 2          { sub(/^\/\*/, "/** @file\n *") }
/^ \*  returns  / { sub(/returns +/, "@return ") }
/^ \*  memory  /  { sub(/memory +/, "@par Memory\n *  ") }
/^ \*  [a-z][a-z_]*(, [a-z][a-z_]*)*  +[^ ]/ {
  names = substr($0, 5)
  sub(/  .*/, "", names)
  text = substr($0, 5 + length(names))
  gsub(/, /, ",", names)
  $0 = " *  @param " names " " text
}
# One comment for two fields is a comment for each.
match($0, /^  [a-z0-9_]+ [a-z_]+, [a-z_]+;/) && /\/\*\*</ {
  split(substr($0, 1, RLENGTH - 1), words, /[ ,]+/)
  comment = substr($0, RLENGTH + 1)
  $0 = "  " words[2] " " words[3] ";" comment " " words[2] " " words[4] ";" comment
}
{ print }
