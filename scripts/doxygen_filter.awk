# SPDX-License-Identifier: Apache-2.0
# Turns the comments of a public header into what Doxygen knows, for scripts/document.sh and tests/check_docs.py:
#   - the comment in line 2 tells of the file, one between lines of hyphens begins a group, a heading a group within it;
#   - "returns" and the columns of parameters become commands, so that Doxygen holds the names against the declarations;
#     in front of a file or a group they become a list;
#   - an indented block that ends like a program is an example, between @code and @endcode.
BEGIN {
  titles["kel_nn.h"] = "C: the library"
  titles["kel_nn_kit.h"] = "C: the kit"
  titles["kel_nn.hpp"] = "C++: both as objects"
}
FNR == 1 {
  file = FILENAME
  sub(/.*\//, "", file)
}
function open_group(title, name) {
  name = tolower(file " " title)
  gsub(/[^a-z0-9]+/, "_", name)
  printf "/** @defgroup %s %s\n", name, title
  ++depth
}
function close_groups(down_to) {
  for (; depth > down_to; --depth) printf "/** @} */ "
}
# The indented block that has been gathered: an example, a table, or more of a parameter's text.
function print_block(i, start, end) {
  if (!size) return
  end = ""
  start = " * "
  if (block[size] ~ /[;}]$/) {
    printf "%s * @code{%s}\n", (has_commands ? " * @par Example\n" : ""), (file ~ /hpp$/ ? ".cpp" : ".c")
    end = " * @endcode"
  } else if (block[1] ~ /[^ *]  +[^ ]/ || block[size] ~ /[^ *]  +[^ ]/) {
    print " * @verbatim"
    end = " * @endverbatim"
    start = "    "
  }
  for (i = 1; i <= size; ++i) {
    sub(end ? "^ [*]     ? ?" : "^ [*] +", start, block[i])
    print block[i]
  }
  if (end) print end
  size = 0
}

/^ *\/\*\*/                     { kind = "doc"; has_commands = 0 }
FNR == 2                        { sub(/^\/\*/, "/** @file\n *"); kind = "file"; has_commands = 0 }
# Groups: of a file, between lines of hyphens, headings.
/^extern "C"|^namespace/        { print; if (/extern/) { getline; print } open_group(titles[file]); print " * @{ */"; next }
/^\/\* -+$/                     { kind = "banner"; has_commands = 0; close_groups(1); getline; open_group(substr($0, 4)); next }
kind == "banner" && / -+ \*\/$/ { print_block(); print " * @{ */"; kind = ""; was_empty = 0; next }
/^\/\* .* -+ \*\/$/             { gsub(/^\/\* | -+ \*\/$/, ""); close_groups(2); open_group($0); print " * @{ */"; next }
depth && /^#ifdef __cplusplus|^}  \/\/ namespace/ { close_groups(0); print "" }
# What is private is not told of.
/^ private:$/                   { print; print "  /** @cond */"; is_private = 1; next }
is_private && /^(};| public:| protected:)/ { print "  /** @endcond */"; is_private = 0 }
# Blocks, indented behind an empty line.
kind && (was_empty || size) && /^ *\*     +[^ ]/ {
  sub(/^ +/, " ")
  block[++size] = $0
  was_empty = 0
  next
}
                                { print_block(); was_empty = kind && /^ *\*$/ }
# Commands, or a list.
kind == "doc" && /^ \*  returns  / { sub(/returns +/, "@return "); has_commands = 1 }
kind == "doc" && /^ \*  memory  /  { sub(/memory +/, "@par Memory\n *  "); has_commands = 1 }
kind == "doc" && /^ \*  [a-z][a-z_]*(, [a-z][a-z_]*)*  +[^ ]/ {
  names = substr($0, 5)
  sub(/  .*/, "", names)
  text = substr($0, 5 + length(names))
  gsub(/, /, ",", names)
  $0 = " *  @param " names " " text
  has_commands = 1
}
(kind == "file" || kind == "banner") && /^ \*  ?[a-z_]+(, [a-z]+)*  +[^ ]/ {
  name = text = substr($0, 4)
  sub(/  .*/, "", name)
  sub(/^ ?[a-z_, ]*[a-z]  +/, "", text)
  $0 = " * - `" name "`: " text
}
kind                            { while (match($0, /docs\/[a-z]+\.md/)) $0 = substr($0, 1, RSTART - 1) "@ref " \
                                    substr($0, RSTART + 5, RLENGTH - 8) " " substr($0, RSTART + RLENGTH) }
# One comment for two fields is a comment for each.
match($0, /^  [a-z0-9_]+ [a-z_]+, [a-z_]+;/) && /\/\*\*</ {
  split(substr($0, 1, RLENGTH - 1), words, /[ ,]+/)
  comment = substr($0, RLENGTH + 1)
  $0 = "  " words[2] " " words[3] ";" comment " " words[2] " " words[4] ";" comment
}
{ print }
/\*\//                          { kind = "" }
