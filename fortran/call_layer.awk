# Adds the call layer to the Fortran module: awk -f wrapped.awk -f call_layer.awk blac_routines.h orx_linear_algebra.f90.in
#
# Each routine of the table becomes an interface where the template says @INTERFACES@ and a name in the list of
# public names where it says @PUBLIC@. `x[]` is an array; it has two dimensions where the next argument is its leading
# dimension, `ldx`. What is const is intent(in); arguments that routines only write are listed here.

BEGIN {
  split("info m w ipiv ifail isuppz tau", names)
  for (i in names) writtenOnly[names[i]] = 1
  fortran["char"] = "character(kind=c_char)"; fortran["int"] = "integer(c_int)"
  fortran["double"] = "real(c_double)"; fortran["float"] = "real(c_float)"
}

function Add(line) { interfaces = interfaces "     " line "\n" }

function Dimensions(parameter, next_name, name) {
  if (parameter !~ /\[\]/) return ""
  return next_name == "ld" name ? "(ld" name ", *)" : "(*)"
}

function Intent(parameter, name) {
  if (parameter ~ /const/) return "in"
  return name in writtenOnly ? "out" : "inout"
}

# Adds the interface of BLAC_ROUTINE(result, NAME, name, (parameters), ...
function AddRoutine(text,    result, upper, lower, parameters, n, i, name, type, declaration, order, count, list, declarations) {
  split(text, head, /[(,] */)
  result = head[2]; upper = head[3]; lower = "blac_" head[4]
  parameters = substr(text, index(text, "(") + 1)
  parameters = substr(parameters, index(parameters, "(") + 1)
  sub(/\).*/, "", parameters)
  n = split(parameters, parameter, / *, */)
  for (i = 1; i <= n; ++i) {
    name[i] = parameter[i]
    gsub(/.*[ *]|\[\]/, "", name[i])
  }
  for (i = 1; i <= n; ++i) {
    type = parameter[i]
    sub(/[^a-z].*/, "", type)
    declaration = fortran[type] ", intent(" Intent(parameter[i], name[i]) ") :: "
    if (!(declaration in list)) order[++count] = declaration
    list[declaration] = list[declaration] (list[declaration] ? ", " : "") \
                        name[i] Dimensions(parameter[i], name[i + 1], name[i])
    arguments = (i == 1 ? "" : arguments ", ") name[i]
  }
  public = public (public ? ", " : "") lower

  Add((result == "void" ? "subroutine " : "function ") Wrapped(lower "(" arguments ")") " &")
  Add("     bind(C, name=\"BLAC_" upper "\")")
  declarations = result == "void" ? "" : fortran[result] ","
  for (i = 1; i <= count; ++i) declarations = declarations order[i]
  Add("  import :: " Imports(declarations))
  for (i = 1; i <= count; ++i) Add("  " Wrapped(order[i] list[order[i]]))
  if (result != "void") Add("  " fortran[result] " :: " lower)
  Add("end " (result == "void" ? "subroutine" : "function") "\n")
}

FNR == 1 { ++file }

# The table

file == 1 && /^#ifdef BLAC_ROUTINE/ { inTable = 1; next }
file == 1 && (!inTable || /^#|NOLINT|^$/) { next }
file == 1 && /^\/\*/ { inComment = 1 }
file == 1 && inComment {
  if (/\*\//) inComment = 0
  gsub(/^\/\* *|^ \* *| *\*\/$/, "")
  gsub(/^-+ | -+$/, "")
  if ($0 != "") Add("! " $0)
  next
}
file == 1 {
  sub(/^ +/, "")
  routine = routine (routine ~ /,$/ ? " " : "") $0
  open = gsub(/\(/, "(", routine); closed = gsub(/\)/, ")", routine)
  if (open == closed) { AddRoutine(routine); routine = "" }
}

# The template

file == 2 && /@PUBLIC@/ { print "  public :: " Wrapped(public); next }
file == 2 && /@INTERFACES@/ { printf "%s", interfaces; next }
file == 2
