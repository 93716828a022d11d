# Makes the entry points of one group: awk -v pattern=^ORX_SPARSE_ -f table.awk -f entry_points.awk orx_linear_algebra.h
#
# ORX_SPARSE_ADD(...) checks its arguments and calls orx::host::SparseAdd(...), which gets numbers and objects instead
# of addresses and handles. Where the table has a handle that is given, the function returns the object for it.

function CamelCase(name,    words, n, i, result) {
  n = split(tolower(name), words, "_")
  for (i = 2; i <= n; ++i) result = result toupper(substr(words[i], 1, 1)) substr(words[i], 2)
  return result
}

function IsHandle(i) { return type[i] ~ /^orx_/ && type[i] != "orx_progress" }
function IsGiven(name, i) { return IsHandle(i) && role[i] == "out" && name !~ /_(CLOSE|DELETE)$/ }
function Checked(i) { return "Required(\"" argument[i] "\", " argument[i] ")" }

function CallText(i,    live) {
  if (IsHandle(i) && role[i] == "in") {
    live = "Live<" CamelCase(type[i]) ">(\"" argument[i] "\", " argument[i] ")"
    return type[i] == "orx_block_matrix" ? "Resolve(" live ")" : live
  }
  if (role[i] == "value" || optional[i]) return argument[i]
  if (role[i] == "inputs" || role[i] == "array" || role[i] == "text") return Checked(i)
  return "*" Checked(i)
}

function AddSection(title) {}

function AddEntry(name, n,    i, parameters, call, given) {
  if (name !~ pattern) return
  for (i = 1; i <= n; ++i) {
    parameters = parameters (i > 1 ? ", " : "") parameter[i]
    if (i == n) break
    if (IsGiven(name, i)) given = i
    else call = call (call == "" ? "" : ", ") CallText(i)
  }
  call = CamelCase(name) "(" call ")"
  if (given) call = "*" argument[given] " = AddObject(" call ")"
  print "extern \"C\" void " name "(" parameters ") {"
  print "  using namespace orx::host;"
  print "  Answer(\"" name "\", stat, [&] {"
  if (given) print "    " Checked(given) ";"
  print "    " call ";"
  print "  });"
  print "}\n"
}
