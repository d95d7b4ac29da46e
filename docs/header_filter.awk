# What Doxygen reads of a public header. The comment at its top speaks for the file; a section ("---- Title ----") with
# the comment below it is a group of what follows; "Threads: ..." and its like are items of a list; what is indented by
# three is a table. No line is added or lost, so that warnings name the right one.
function section(end) {
  printf "%s/** @name %s%s\n", (inSection ? "/** @} */ " : ""), title, end
  title = ""
  inSection = 1
}
NR == 1 { sub(/^\/\*/, "/**"); inTop = 1 }
inTop && /\*\/$/ { sub(/\*\/$/, "@file */"); inTop = 0 }

title != "" && $0 == "/*" { section(""); inText = 1; print " *"; next }
title != "" { section(" */ /** @{ */") }
inText && $0 == " */" { print " */ /** @{ */"; inText = 0; next }
/^\/\* ---- .* -+ \*\/$/ {
  title = $0
  gsub(/^\/\* ---- | -+ \*\/$/, "", title)
  next
}
inSection && /^(ZAL_END_DECLS|}  \/\/ namespace zal)/ { print "/** @} */ " $0; inSection = 0; next }

/^ \* (Ownership|Threads|Units|Limits|Errors|Source): / { sub(/^ \* /, " * - **"); sub(/:/, ":**") }
{ sub(/^ \*   /, " *       "); print }
