# Cuts the C and C++ blocks out of a Markdown file, each into a source file of its own that compiles:
#
#   awk -v prefix=DIR/NAME -f code_blocks.awk FILE.md      prints the names of the files that it writes
#
# A block that includes nothing gets the library's header. What a reader need not see stands before the block, in a
# comment that begins with "<!-- code"; when that ends with "{", the block is the body of a function.
function finish(  file) {
  file = prefix "_" ++count "." language
  if (code !~ /#include/) code = "#include <zal/zal." (language == "c" ? "h" : "hpp") ">\n" code
  printf "%s", code (opens ? "}\n" : "") > file
  close(file)
  print file
  code = language = ""
  opens = 0
}
/^<!-- code$/ { isHidden = 1; next }
isHidden && /^-->$/ { isHidden = 0; next }
isHidden { code = code $0 "\n"; opens = /{$/; next }
/^```(c|cpp)$/ { language = substr($0, 4); code = code "#line " NR + 1 " \"" FILENAME "\"\n"; next }
language != "" && /^```$/ { finish(); next }
language != "" { code = code $0 "\n"; next }
code != "" && NF { print FILENAME ":" NR ": hidden code without a block" > "/dev/stderr"; exit 1 }
