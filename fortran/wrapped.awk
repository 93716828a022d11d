# For both scripts that make parts of the Fortran module.

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

# The names of iso_c_binding, and orx_handle, that declarations use.
function Imports(declarations,    names, n, i, result) {
  n = split("c_char c_double c_float c_funptr c_int c_int64_t c_ptr orx_handle", names, " ")
  for (i = 1; i <= n; ++i)
    if (declarations ~ names[i] "[),]") result = result (result == "" ? "" : ", ") names[i]
  return result
}
