# Makes a table of calls of all entry points, each with one argument that the test chooses and good ones elsewhere:
# awk -f table.awk -f arguments.awk orx_linear_algebra.h

function Good(i) {
  if (type[i] ~ /^orx_/) return "&good." substr(type[i], 5)
  if (role[i] == "pointer") return type[i] == "void" ? "&good.address" : "&good." type[i] "_pointer"
  if (role[i] == "inpointer") return "&good.address"
  if (type[i] == "char") return "good.text"
  return "good." type[i] "s"
}

function AddSection(title) {}

function AddEntry(name, n,    i, k, isHandle, value, list) {
  for (i = 1; i < n; ++i) {
    if (role[i] == "value" || optional[i]) continue
    isHandle = type[i] ~ /^orx_/ && (role[i] == "in" || name ~ /_(CLOSE|DELETE)$/)
    list = ""
    for (k = 1; k < n; ++k) {
      value = k != i ? Good(k) : isHandle ? "handle" : "nullptr"
      list = list value ", "
    }
    print "{\"" name "\", \"" argument[i] "\", " (isHandle ? "\"" substr(type[i], 5) "\"" : "nullptr") ", [](Good& good, orx_handle* handle, int* stat) {"
    print "   static_cast<void>(good), static_cast<void>(handle);"
    print "   " name "(" list "stat);"
    print " }},"
  }
}
