#!/usr/bin/env python3
"""Which faults would the tests not find? Makes mutants of a source, one changed place each, builds a test program with
each of them and runs it. A mutant with which all tests pass has survived: either a test is missing, or the change
makes no difference that anybody can see. Not part of the test run, because every mutant costs a build.

    tests/house/mutants.py --build build/release --target mtx_tests --filter 'Matrix*' --count 40 mtx/impl/ORXSrvMatrix.cpp

The source is changed in place and put back, also after an interruption. With --count a sample is taken, the same one
for the same --seed. The exit code is 1 when a mutant survived, 2 when the tests fail without any change.
"""

import argparse
import pathlib
import random
import re
import subprocess
import sys

# What is written instead of an operator; binary ones stand between blanks here, as the formatter leaves them.
OPERATORS = {
    " < ": " <= ", " <= ": " < ", " > ": " >= ", " >= ": " > ", " == ": " != ", " != ": " == ",
    " && ": " || ", " || ": " && ", " + ": " - ", " - ": " + ", " * ": " + ", " / ": " * ", " % ": " / ",
    " += ": " -= ", " -= ": " += ", " *= ": " += ", " |= ": " &= ", " &= ": " |= ", "++": "--", "--": "++",
    "std::min": "std::max", "std::max": "std::min",
}
OPERATOR = re.compile("|".join(re.escape(op) for op in sorted(OPERATORS, key=len, reverse=True)))
CONSTANT = re.compile(r"(?<![\w.])(\d+(?:\.\d+)?|true|false|nullptr)(?![\w.])")
CONDITION = re.compile(r"(?<=\bif \().*(?=\) ?(?:\{|return|throw|continue|break|[\w:]+.*;|$))|(?<= = ).*(?= \? )")
STATEMENT = re.compile(r"^ +(?!return\b|using\b|constexpr\b|static\b|break\b|case\b|else\b)[\w:*>.\[\]()-]+.*;$")
DECLARATION = re.compile(r"^ +(?:[\w:<>,*& ]+ )?(?:const )?[&*]?\w+(?:\(.*\)|\{.*\})?(?: = .*)?;$")


def constant_instead(text):
    words = {"true": "false", "false": "true", "nullptr": "nullptr"}
    if text in words:
        return words[text]
    return str(float(text) + 1) if "." in text else str(int(text) + 1)


def code_of(line):
    """The line with comments and texts blanked out, so that columns stay."""
    line = re.sub(r'"(?:\\.|[^"\\])*"', lambda m: "\0" * len(m.group()), line)
    return re.sub(r"//.*", lambda m: "\0" * len(m.group()), line)


def mutants_of(lines):
    """Triples (index of a line, what is written there instead, what was done)."""
    in_comment = False
    for index, line in enumerate(lines):
        in_comment = (in_comment or line.lstrip().startswith("/*")) and "*/" not in line
        code = code_of(line)
        if in_comment or line.startswith("#") or "static_assert" in line or not code.strip("\0 "):
            continue

        def replaced(match, text):
            return line[: match.start()] + text + line[match.end():]

        for match in OPERATOR.finditer(code):
            if not (match.group() in (" < ", " > ") and "template" in code):
                yield index, replaced(match, OPERATORS[match.group()]), f"'{match.group().strip()}'"
        for match in CONSTANT.finditer(code):
            text = constant_instead(match.group())
            if text != match.group():
                yield index, replaced(match, text), f"'{match.group()}' -> '{text}'"
        for match in CONDITION.finditer(code):
            condition = line[match.start(): match.end()]
            yield index, replaced(match, f"!({condition})"), "condition negated"
        calls = "(" in code or " = " in code or "++" in code
        if STATEMENT.match(code) and calls and code.count("(") == code.count(")"):
            if not DECLARATION.match(code) or re.match(r"^ +[\w.>()\[\]*-]+ ?(?:[-+*|&]?= |\()", code):
                yield index, re.match(" *", line).group() + ";", "statement deleted"


def run(command, seconds):
    """The exit code; None when the time was up."""
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
    try:
        return process.wait(seconds)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
        return None


class TestProgram:
    def __init__(self, arguments):
        self.build = ["cmake", "--build", arguments.build, "--target", arguments.target]
        self.folder, self.name = pathlib.Path(arguments.build), arguments.target
        self.arguments = [f"--gtest_filter={arguments.filter}", "--gtest_fail_fast"]
        self.seconds = arguments.seconds

    def verdict(self):
        if run(self.build, None) != 0:
            return "does not build"
        program = next(path for path in self.folder.rglob(self.name) if path.is_file())
        code = run([program.resolve(), *self.arguments], self.seconds)
        return "survived" if code == 0 else "hangs" if code is None else "found"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("sources", nargs="+", type=pathlib.Path, metavar="SOURCE")
    parser.add_argument("--build", required=True, help="the build folder")
    parser.add_argument("--target", required=True, help="the GoogleTest program that is built and run")
    parser.add_argument("--filter", default="*", help="the tests that are run")
    parser.add_argument("--seconds", type=float, default=60, help="the time that one run of the tests may take")
    parser.add_argument("--count", type=int, help="how many mutants, all if not given")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--list", action="store_true", help="print the mutants only")
    arguments = parser.parse_args()

    texts = {source: source.read_text() for source in arguments.sources}
    mutants = [(source, *mutant) for source in texts for mutant in mutants_of(texts[source].splitlines())]
    if arguments.count is not None and arguments.count < len(mutants):
        mutants = sorted(random.Random(arguments.seed).sample(mutants, arguments.count))
    tests = TestProgram(arguments)
    if not arguments.list and tests.verdict() != "survived":
        print("the tests fail without any change", file=sys.stderr)
        sys.exit(2)

    counts = {}
    for source, index, text, change in mutants:
        lines = texts[source].splitlines()
        place = f"{source}:{index + 1}: {change}: {lines[index].strip()}"
        if arguments.list:
            print(place, "->", text.strip())
            continue
        lines[index] = text
        try:
            source.write_text("\n".join(lines) + "\n")
            verdict = tests.verdict()
        finally:
            source.write_text(texts[source])
        counts[verdict] = counts.get(verdict, 0) + 1
        print(f"{verdict:14} {place}", flush=True)
    print(", ".join(f"{count} {verdict}" for verdict, count in sorted(counts.items())))
    sys.exit(1 if counts.get("survived") else 0)


if __name__ == "__main__":
    main()
