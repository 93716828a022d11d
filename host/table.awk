# Reads orx_linear_algebra.h, the table of entry points, and calls for each in turn
#
#     AddSection(title)        of a heading "/* ---- title */"
#     AddEntry(name, count)    of a prototype, with
#                              parameter[i] as it is declared
#                              type[i]     "int", "double", "char", "orx_factor", ...
#                              role[i]     "in", "out": a scalar; "inputs", "array": several; "text"; "inpointer",
#                              "pointer": a pointer that is read, written; "value": what is passed by value
#                              argument[i] its name
#                              optional[i] 1 where it may be null
#                              comment[1 ... comments], the lines above the prototype without their marks

function SetArgument(i, text,    isConst) {
  optional[i] = sub(/ *ORX_OPTIONAL/, "", text)
  parameter[i] = text
  isConst = text ~ /const/
  if (text ~ /^orx_progress /) role[i] = "value"
  else if (text ~ /^void\* [a-z_]+$/) role[i] = "value"
  else if (text ~ /\*\*/ || text ~ /\* const\*/) role[i] = text ~ /\* const\*/ ? "inpointer" : "pointer"
  else if (text ~ /^char const .*\[\]$/) role[i] = "text"
  else if (text ~ /\[\]$/) role[i] = isConst ? "inputs" : "array"
  else role[i] = isConst ? "in" : "out"
  type[i] = text
  sub(/[ *].*/, "", type[i])
  argument[i] = text
  gsub(/.*[ *]|\[\]/, "", argument[i])
}

function ReadPrototype(text,    name, list, n, i) {
  gsub(/[ \n]+/, " ", text)
  name = text
  sub(/^ORX_EXPORT void /, "", name)
  sub(/\(.*/, "", name)
  list = text
  sub(/^[^(]*\(/, "", list)
  sub(/\);.*/, "", list)
  n = split(list, parts, / *, */)
  for (i = 1; i <= n; ++i) SetArgument(i, parts[i])
  AddEntry(name, n)
}

FNR == 1 { ++file }

file == 1 && /^\/\* ---- / { title = $0; gsub(/^\/\* -+ | \*\/$/, "", title); AddSection(title); next }
file == 1 && /^\/\*/ { inComment = 1; comments = 0 }
file == 1 && inComment {
  if (/\*\//) inComment = 0
  gsub(/^\/\* *|^ \* ?| *\*\/$/, "")
  if ($0 != "") comment[++comments] = $0
  next
}
file == 1 && /^ORX_EXPORT void / { prototype = "" ; inPrototype = 1 }
file == 1 && inPrototype {
  prototype = prototype $0 " "
  if (/;/) { inPrototype = 0; ReadPrototype(prototype); comments = 0 }
}
