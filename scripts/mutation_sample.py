#!/usr/bin/env python3
"""Finds, draws and applies the mutants of scripts/mutation-sample.sh.

  mutation_sample.py draw ROOT COUNT SEED [PATH_PREFIX]
      Prints COUNT mutants drawn from the product sources under ROOT with the
      given seed, one a line, tab-separated: file, line, column (0-based, in
      the line), operator name, original text, replacement. Sorted by file
      and line, so that consecutive mutants of one file rebuild little. The
      first line of the output (starting with '#') says how many places were
      found and which files were left out.
  mutation_sample.py apply ROOT FILE LINE COLUMN ORIGINAL REPLACEMENT
      Replaces ORIGINAL at that place of ROOT/FILE (which must hold it there).

Mutants are never placed inside string literals (raw ones too), character
literals or comments, nor in preprocessor lines. Comparison and logical
operators are only taken with a space on each side, as the project's layout
writes binary operators: template brackets, references ("T&& x"),
"operator==" and "->" are then never mistaken for them.
"""

import random
import re
import subprocess
import sys

PRODUCT_FOLDERS = ("setUserPassword/", "security/", "lineEdit/", "utils/")

# name, original, replacement
OPERATORS = [
    ("< to <=", "<", "<="),
    ("<= to <", "<=", "<"),
    ("> to >=", ">", ">="),
    (">= to >", ">=", ">"),
    ("== to !=", "==", "!="),
    ("!= to ==", "!=", "=="),
    ("&& to ||", "&&", "||"),
    ("|| to &&", "||", "&&"),
    ("+ 1 to - 1", "+ 1", "- 1"),
    ("- 1 to + 1", "- 1", "+ 1"),
    ("return true to return false", "return true", "return false"),
    ("return false to return true", "return false", "return true"),
]

RAW_STRING_PREFIX = re.compile(r"(?:u8|u|U|L)?R$")
IDENTIFIER_TAIL = re.compile(r"[A-Za-z0-9_]+$")


def code_mask(text):
    """The text with every comment, literal and preprocessor line blanked.

    Comments and preprocessor lines become spaces, the inside of string and
    character literals (with their quotes) becomes 'S'; line feeds stay, so
    offsets and line numbers are those of the original.
    """
    out = list(text)
    n = len(text)
    i = 0
    line_start = True  # only white space so far on this line

    def blank(start, end, fill):
        for k in range(start, end):
            if out[k] != "\n":
                out[k] = fill

    while i < n:
        c = text[i]
        if c == "\n":
            line_start = True
            i += 1
            continue
        if c in " \t":
            i += 1
            continue
        if line_start and c == "#":
            # A preprocessor line, with its backslash continuations.
            end = i
            while end < n:
                if text[end] == "\n" and text[end - 1] != "\\":
                    break
                end += 1
            blank(i, end, " ")
            i = end
            continue
        line_start = False
        if text.startswith("//", i):
            end = text.find("\n", i)
            end = n if end < 0 else end
            blank(i, end, " ")
            i = end
            continue
        if text.startswith("/*", i):
            end = text.find("*/", i + 2)
            end = n if end < 0 else end + 2
            blank(i, end, " ")
            i = end
            continue
        if c == '"':
            prefix = IDENTIFIER_TAIL.search(text, 0, i)
            word = prefix.group(0) if prefix and prefix.end() == i else ""
            if RAW_STRING_PREFIX.fullmatch(word):
                open_paren = text.find("(", i)
                delimiter = text[i + 1:open_paren]
                close = text.find(")" + delimiter + '"', open_paren)
                end = n if close < 0 else close + len(delimiter) + 2
            else:
                end = i + 1
                while end < n and text[end] != '"':
                    end += 2 if text[end] == "\\" else 1
                end = min(end + 1, n)
            blank(i, end, "S")
            i = end
            continue
        if c == "'":
            # A digit separator (1'000) is no literal: the word before it
            # starts with a digit.
            prefix = IDENTIFIER_TAIL.search(text, 0, i)
            if prefix and prefix.end() == i and prefix.group(0)[0].isdigit():
                i += 1
                continue
            end = i + 1
            while end < n and text[end] != "'":
                end += 2 if text[end] == "\\" else 1
            end = min(end + 1, n)
            blank(i, end, "S")
            i = end
            continue
        i += 1
    return "".join(out)


def operator_pattern(original):
    if original in ("return true", "return false"):
        return re.compile(r"(?<![A-Za-z0-9_])" + original + r"(?![A-Za-z0-9_])")
    if original in ("+ 1", "- 1"):
        # A binary operator before a literal 1 (not 10, 1.5, 1u, 1'000).
        sign = re.escape(original[0])
        return re.compile(r"(?<= )" + sign + r" 1(?![A-Za-z0-9_.'])")
    # A space before, a space or the end of the line after.
    return re.compile(r"(?<= )" + re.escape(original) + r"(?=[ \n])")


def sites_in(path, text):
    mask = code_mask(text)
    line_starts = [0] + [m.end() for m in re.finditer("\n", text)]
    found = []
    for name, original, replacement in OPERATORS:
        for match in operator_pattern(original).finditer(mask):
            offset = match.start()
            line = bisect_right(line_starts, offset)
            column = offset - line_starts[line - 1]
            found.append((path, line, column, name, original, replacement))
    return found


def bisect_right(values, x):
    lo, hi = 0, len(values)
    while lo < hi:
        mid = (lo + hi) // 2
        if x < values[mid]:
            hi = mid
        else:
            lo = mid + 1
    return lo


def product_files(root, prefix):
    listed = subprocess.run(["git", "-C", root, "ls-files"], capture_output=True, text=True)
    if listed.returncode == 0:
        names = listed.stdout.splitlines()
    else:  # a copy without git: every file under the product folders
        listed = subprocess.run(["find", *PRODUCT_FOLDERS, "-type", "f"], cwd=root,
                                capture_output=True, text=True, check=True)
        names = sorted(listed.stdout.splitlines())
    files, skipped = [], []
    for name in names:
        if not name.startswith(PRODUCT_FOLDERS) or not name.endswith((".cpp", ".h")):
            continue
        if prefix and not name.startswith(prefix):
            continue
        if name.endswith("_windows.cpp"):
            skipped.append(name)
            continue
        files.append(name)
    return files, skipped


def draw(root, count, seed, prefix):
    files, skipped = product_files(root, prefix)
    sites = []
    for name in files:
        with open(f"{root}/{name}", encoding="utf-8") as source:
            sites.extend(sites_in(name, source.read()))
    chosen = random.Random(seed).sample(sites, min(count, len(sites)))
    chosen.sort(key=lambda s: (s[0], s[1], s[2]))
    print(f"# {len(sites)} places in {len(files)} files; {len(skipped)} *_windows.cpp files "
          "left out (not compiled on this platform)")
    for site in chosen:
        print("\t".join(str(field) for field in site))


def apply(root, name, line, column, original, replacement):
    path = f"{root}/{name}"
    with open(path, encoding="utf-8") as source:
        lines = source.read().split("\n")
    text = lines[line - 1]
    if text[column:column + len(original)] != original:
        sys.exit(f"mutation_sample.py: {name}:{line}:{column} does not hold '{original}'")
    lines[line - 1] = text[:column] + replacement + text[column + len(original):]
    with open(path, "w", encoding="utf-8") as source:
        source.write("\n".join(lines))


def main(argv):
    if len(argv) >= 4 and argv[0] == "draw":
        draw(argv[1], int(argv[2]), int(argv[3]), argv[4] if len(argv) > 4 else "")
    elif len(argv) == 7 and argv[0] == "apply":
        apply(argv[1], argv[2], int(argv[3]), int(argv[4]), argv[5], argv[6])
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv[1:])
