# Adds the entry points for hosts to the Fortran module:
# awk -f ../host/table.awk -f wrapped.awk -f host_interfaces.awk ../host/orx_linear_algebra.h MODULE
#
# Each becomes an interface where the module says @HOST_INTERFACES@, and a public name where it says @HOST_PUBLIC@. One
# with texts becomes a procedure where it says @HOST_PROCEDURES@, which takes character strings and calls the interface,
# named c_..., with texts that a zero ends.

BEGIN {
  fortran["char"] = "character(kind=c_char)"; fortran["int"] = "integer(c_int)"
  fortran["double"] = "real(c_double)"; fortran["int64_t"] = "integer(c_int64_t)"
}

function Declaration(name, i, isProcedure,    kind, intent) {
  if (type[i] == "orx_progress") return "type(c_funptr), value :: " argument[i]
  if (role[i] == "value") return "type(c_ptr), value :: " argument[i]
  kind = type[i] ~ /^orx_/ ? "integer(orx_handle)" : role[i] ~ /pointer$/ ? "type(c_ptr)" : fortran[type[i]]
  intent = role[i] ~ /^in|text/ ? "in" : role[i] == "array" || name ~ /_(CLOSE|DELETE)$/ ? "inout" : "out"
  if (role[i] == "text" && isProcedure) kind = "character(*)"
  if (argument[i] == "stat") intent = "out"
  return kind ", intent(" intent ")" (optional[i] || argument[i] == "stat" ? ", optional" : "") " :: " argument[i] \
         (role[i] ~ /^(inputs|array)$/ || (role[i] == "text" && !isProcedure) ? "(*)" : "")
}

function Declarations(name, n, indent, isProcedure,    i, text) {
  for (i = 1; i <= n; ++i) text = text indent Declaration(name, i, isProcedure) "\n"
  return text
}

function Comment(indent,    i, text) {
  for (i = 1; i <= comments; ++i) text = text indent "! " comment[i] "\n"
  return text
}

function AddSection(title) { interfaces = interfaces "     ! " title "\n\n" }

function AddEntry(name, n,    i, list, call, hasText, declarations) {
  public = public (public ? ", " : "") tolower(name)
  for (i = 1; i <= n; ++i) {
    if (role[i] == "text") hasText = 1
    list = list (i > 1 ? ", " : "") argument[i]
    call = call (i > 1 ? ", " : "") (role[i] == "text" ? "trim(" argument[i] ")//c_null_char" : argument[i])
  }
  declarations = Declarations(name, n, "       ", 0)
  interfaces = interfaces (hasText ? "" : Comment("     ")) \
    "     subroutine " Wrapped((hasText ? "c_" : "") tolower(name) "(" list ")") " &\n" \
    "          bind(C, name=\"" name "\")\n" \
    "       import :: " Imports(declarations) "\n" declarations "     end subroutine\n\n"
  if (hasText)
    procedures = procedures Comment("  ") "  subroutine " Wrapped(tolower(name) "(" list ")") "\n" \
      Declarations(name, n, "    ", 1) "    call " Wrapped("c_" tolower(name) "(" call ")") "\n  end subroutine\n\n"
}

file == 2 && /@HOST_PUBLIC@/ { print "  public :: " Wrapped(public); next }
file == 2 && /@HOST_INTERFACES@/ { printf "%s", interfaces; next }
file == 2 && /@HOST_PROCEDURES@/ { printf "%s", procedures; next }
file == 2
