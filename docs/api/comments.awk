# Shows the headers' plain comments to Doxygen as documentation, so that
# the headers keep comments written for readers, without tags: the file's
# opening comment becomes the file's description, a comment on the lines
# above a declaration documents it, and a comment after a member on its
# line documents that member. Lines indented inside a comment (examples)
# become code blocks; elsewhere a backslash before a letter (a registry
# path) and a '<' (a placeholder such as <name>) are shown as written
# instead of being read as commands and tags.

# Text of a comment, escaped outside `code spans`.
function prose(text,    out, i, c, code) {
  out = ""; code = 0
  for (i = 1; i <= length(text); i++) {
    c = substr(text, i, 1)
    if (c == "`") code = !code
    if (!code && c == "\\" && substr(text, i + 1, 1) ~ /[A-Za-z<]/) c = "\\\\"
    else if (!code && c == "<") c = "\\<"
    out = out c
  }
  return out
}

# A whole-line comment: `indent` before it, `text` after "//".
function comment(indent, text) {
  if (text ~ /^   /) return indent "///    " text  # an example: a code block
  return indent "///" prose(text)
}

BEGIN { opening = 1 }
opening && /^\/\// {
  if (!started) { print "/// \\file"; started = 1 }
  print comment("", substr($0, 3)); next
}
{ opening = 0 }
/^[ \t]*\/\/( |$)/ {
  match($0, /^[ \t]*/)
  print comment(substr($0, 1, RLENGTH), substr($0, RLENGTH + 3)); next
}
# The C headers' block comments, the same way.
/^[ \t]*\/\*( |$)/ && !/^[ \t]*\/\*\*/ { sub(/\/\*/, "/**"); print; next }
/[;{,][ \t]+\/\* / { sub(/[ \t]+\/\* /, " /**< "); print; next }
/[;{,][ \t]+\/\/ / {
  at = index($0, "// ")
  head = substr($0, 1, at - 1); sub(/[ \t]+$/, "", head)
  print head " ///< " prose(substr($0, at + 3)); next
}
{ print }
