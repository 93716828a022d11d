# Adds the entry points of the host's face to the Fortran module:
# awk -f ../host/table.awk -f host_interfaces.awk ../host/orx_linear_algebra.h MODULE
#
# Each becomes an interface where the module says @HOST_INTERFACES@, and a public name where it says @HOST_PUBLIC@. One
# with texts becomes a procedure where it says @HOST_PROCEDURES@, which takes character strings and calls the interface
# with texts that a zero ends.

BEGIN {
  fortran["char"] = "character(kind=c_char)"; fortran["int"] = "integer(c_int)"
  fortran["double"] = "real(c_double)"; fortran["int64_t"] = "integer(c_int64_t)"
}

function Declaration(name, i, isProcedure,    kind) {
  kind = type[i] ~ /^orx_/ ? "integer(orx_handle)" : fortran[type[i]]
  if (type[i] == "orx_progress") return "type(c_funptr), value :: function"
  if (role[i] == "value") return "type(c_ptr), value :: " argument[i]
  if (role[i] == "inpointer") return "type(c_ptr), intent(in) :: " argument[i]
  if (role[i] == "pointer") return "type(c_ptr), intent(out) :: " argument[i]
  if (role[i] == "text")
    return isProcedure ? "character(*), intent(in) :: " argument[i] : kind ", intent(in) :: " argument[i] "(*)"
  if (argument[i] == "stat") return kind ", intent(out), optional :: stat"
  if (role[i] == "array") return kind ", intent(inout) :: " argument[i] "(*)"
  if (role[i] == "out") return kind ", intent(" (name ~ /_(CLOSE|DELETE)$/ ? "inout" : "out") ") :: " argument[i]
  return kind ", intent(in)" (optional[i] ? ", optional" : "") " :: " argument[i] (role[i] == "inputs" ? "(*)" : "")
}

function Names(text) { # of iso_c_binding, and orx_handle, in the declarations
  result = ""
  for (k = 1; k <= 7; ++k) {
    word = k == 1 ? "c_char" : k == 2 ? "c_double" : k == 3 ? "c_funptr" : k == 4 ? "c_int" : k == 5 ? "c_int64_t" : k == 6 ? "c_ptr" : "orx_handle"
    if (text ~ word "[),]") result = result (result == "" ? "" : ", ") word
  }
  return result
}

# "a, b, c" in lines that a Fortran compiler takes.
function Wrapped(text,    lines, i) {
  while (length(text) > 100) {
    i = 100
    while (substr(text, i, 2) != ", ") --i
    lines = lines substr(text, 1, i) " &\n          "
    text = substr(text, i + 2)
  }
  return lines text
}

function Procedure(name, n, header, indent, isProcedure,    i, text, declarations) {
  for (i = 1; i <= n; ++i) declarations = declarations indent "  " Declaration(name, i, isProcedure) "\n"
  text = indent header "\n"
  if (!isProcedure) text = text indent "  import :: " Names(declarations) "\n"
  return text declarations
}

function AddSection(title) { interfaces = interfaces "     ! " title "\n\n"; procedures = procedures "" }

function AddEntry(name, n,    i, list, call, lower, comments_, hasText, c) {
  lower = tolower(name)
  for (i = 1; i <= n; ++i) {
    if (role[i] == "text") hasText = 1
    list = list (i > 1 ? ", " : "") argument[i]
    call = call (i > 1 ? ", " : "") (role[i] == "text" ? "trim(" argument[i] ")//c_null_char" : argument[i])
  }
  for (c = 1; c <= comments; ++c) comments_ = comments_ "! " comment[c] "\n"
  public = public (public ? ", " : "") lower
  if (!hasText) gsub(/(^|\n)!/, "&", comments_)
  block = comments_
  if (!hasText) {
    gsub(/\n!/, "\n     !", block)
    interfaces = interfaces (block == "" ? "" : "     " block)
  }
  interfaces = interfaces Procedure(name, n, "subroutine " Wrapped((hasText ? "c_" : "") lower "(" list ")") " &\n          bind(C, name=\"" name "\")", "     ", 0) \
    "     end subroutine\n\n"
  if (!hasText) return
  block = comments_
  gsub(/\n!/, "\n  !", block)
  procedures = procedures (block == "" ? "" : "  " block) Procedure(name, n, "subroutine " Wrapped(lower "(" list ")"), "  ", 1) \
    "    call " Wrapped("c_" lower "(" call ")") "\n  end subroutine\n\n"
}

file == 2 && /@HOST_PUBLIC@/ { print "  public :: " Wrapped(public); next }
file == 2 && /@HOST_INTERFACES@/ { printf "%s", interfaces; next }
file == 2 && /@HOST_PROCEDURES@/ { printf "%s", procedures; next }
file == 2
