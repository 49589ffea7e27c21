# Converts a public header for Doxygen. The comment at its start, which contains "@ingroup GROUP", becomes the
# description of the file. Everything that the header declares joins the group, except the namespace, which is
# in no group. The tag of an operation links to its explanation. Only one line is added, and one is removed.

NR == 1 { print "/// @file" }

/^\/\/\/ @ingroup / && !begun { group = $3 }

/^#pragma once$/ {
  begun = 1
  next
}

/^namespace / { sub(/.*/, close_group() "& " open_group()) }
/^} \/\/ namespace/ { sub(/.*/, close_group() "&") }

begun && /^$/ && !isOpen { $0 = open_group() }

/^ *\/\/\/ \[(closed|open|any), .*\]$/ { sub(/\[.*/, "@ref tags \"&\"") }

{ print }

END { print close_group() }

function open_group() {
  if (!group) return "" # docs/tests/groups reports it
  isOpen = 1
  return "/** @addtogroup " group " */ /** @{ */"
}

function close_group() {
  if (!isOpen) return ""
  isOpen = 0
  return "/** @} */ "
}
