#!/usr/bin/env python3
"""Doxygen input filter: reads a Norvane header and prints it with its comments as Doxygen sees them.

The headers keep plain `//` comments that start with the symbol and state its contract. This filter
turns them into documentation by position, keeping every line where it was (so warnings point at the
right line):

- the comment block that opens the file documents the file;
- a comment block directly above a declaration (no blank line between) documents it; when several
  declarations follow it without a blank line (a function family, overloads), they form a member
  group and each shows the block;
- a comment after code on the same line documents that member (an enumerator, a field);
- comments followed by a blank line (section headings), comments inside function bodies and macro
  definitions stay plain comments.

Comment text is prose, not markup: characters Doxygen would read as commands or HTML are escaped,
except inside `code spans`.

Usage: header_filter.py HEADER  (Doxygen's INPUT_FILTER)
"""

import re
import sys

COMMENT = re.compile(r"^(\s*)//(?![/!])\s?(.*)$")
SCOPE = re.compile(r"^\s*(template\s*<.*>\s*)?(class|struct|union|enum|namespace)\b")
ACCESS = re.compile(r"^\s*(public|protected|private)\s*:\s*$")
SPECIAL = re.compile(r"[\\@<>&#%$]")


def escape(text):
    """Escapes Doxygen's command and HTML characters outside `code spans`."""
    parts = text.split("`")
    if len(parts) % 2 == 0:  # an unmatched backtick: treat the whole line as prose
        parts = [text.replace("`", "'")]
    for i in range(0, len(parts), 2):
        parts[i] = SPECIAL.sub(lambda m: "\\" + m.group(0), parts[i])
        # "::name" after anything but a name asks Doxygen for a link to a global name.
        parts[i] = re.sub(r"(?<!\w)::", r"\\::", parts[i])
    return "`".join(parts)


def split_code(line):
    """Returns (code, trailing comment or None), ignoring // inside string and character literals."""
    quote = None
    i = 0
    while i < len(line):
        c = line[i]
        if quote:
            if c == "\\":
                i += 1
            elif c == quote:
                quote = None
        elif c in "\"'":
            quote = c
        elif line.startswith("//", i):
            return line[:i], line[i + 2:]
        i += 1
    return line, None


class Scanner:
    """Follows braces to tell scopes (namespace, class, enum) from function bodies."""

    def __init__(self):
        self.stack = []  # "scope" or "body"
        self.statement = ""

    def in_body(self):
        return "body" in self.stack

    def depth(self):
        return len(self.stack)

    def feed(self, code):
        quote = None
        for i, c in enumerate(code):
            if quote:
                if c == quote and code[i - 1] != "\\":
                    quote = None
                continue
            if c in "\"'":
                quote = c
            elif c == "{":
                text = self.statement.strip()
                scope = not self.in_body() and SCOPE.match(text) and not text.endswith(")")
                self.stack.append("scope" if scope else "body")
                self.statement = ""
            elif c == "}":
                if self.stack:
                    self.stack.pop()
                self.statement = ""
            elif c == ";":
                self.statement = ""
            else:
                self.statement += c
        self.statement += " "


def analyse(lines):
    """For each line: (kind, depth at its start, inside a body at its start, ends a statement)."""
    scanner = Scanner()
    info = []
    continued = False  # a preprocessor line ending in a backslash
    for line in lines:
        body, depth = scanner.in_body(), scanner.depth()
        stripped = line.strip()
        if continued or stripped.startswith("#"):
            kind = "define" if stripped.startswith("#define") and not continued else "preprocessor"
            if continued:
                kind = "macro"
            continued = line.rstrip().endswith("\\")
            info.append((kind, depth, body, False))
            continue
        if not stripped:
            info.append(("blank", depth, body, False))
            continue
        if COMMENT.match(line):
            info.append(("comment", depth, body, False))
            continue
        code, _ = split_code(line)
        scanner.feed(code)
        end = code.rstrip().endswith((";", "}", "};")) and not scanner.in_body()
        info.append(("code", depth, body, end))
    return info


def declared_name(line):
    """The name a declaration line declares: a macro, function, function pointer or field."""
    for pattern in (r"#\s*define\s+(\w+)", r"\(\s*\*\s*(\w+)\s*\)\s*\(", r"(operator\s*[^\s(]+|~?\w+)\s*\(",
                    r"(\w+)\s*(\[[^]]*\])?\s*(=[^;]*)?;"):
        m = re.search(pattern, line)
        if m:
            return m.group(1)
    return None


def convert_comment(line, prefix=""):
    m = COMMENT.match(line)
    return f"{m.group(1)}{prefix}/// {escape(m.group(2))}".rstrip()


def filter_header(lines):
    info = analyse(lines)
    out = list(lines)
    n = len(lines)
    closes = []  # lines before which a member group ends
    first = next((i for i in range(n) if info[i][0] != "blank"), n)
    i = 0
    while i < n:
        kind, depth, body, _ = info[i]
        if kind == "code" and not body:
            code, trailing = split_code(lines[i])
            if trailing is not None and not trailing.startswith(("/", "!")):
                out[i] = f"{code.rstrip()}  ///< {escape(trailing.strip())}"
        if kind != "comment" or body:
            i += 1
            continue
        start = i
        while i < n and info[i][0] == "comment" and info[i][1] == depth:
            i += 1
        end = i  # the line after the block
        if start == first:
            for k in range(start, end):
                out[k] = convert_comment(lines[k])
            out[end - 1] += " \\file"
            continue
        if end == n or info[end][0] not in ("code", "define") or ACCESS.match(lines[end]) or \
                lines[end].strip().startswith("}"):
            continue  # a heading, a note or the end of a scope: stays a plain comment
        for k in range(start, end):
            out[k] = convert_comment(lines[k])
        # The declarations that follow without a break form one family when the comment heads
        # them all ("Integer parsing. ..."), names them, or they share the first one's name
        # (overloads, Realloc and ReallocDebug). A comment that opens with the first one's name
        # is that declaration's alone otherwise.
        text = " ".join(lines[start:end])
        opening = re.match(r"\s*//\s*([\w~]+)", lines[start])
        opening = opening.group(1) if opening else None
        j, members, first_name = end, 0, None
        while j < n:
            k_kind, k_depth, k_body, _ = info[j]
            if k_kind in ("blank", "preprocessor") or (k_kind == "comment" and not k_body):
                break
            if not k_body and k_depth == depth and k_kind in ("code", "define"):
                if lines[j].strip().startswith("}") or SCOPE.match(lines[j]):
                    break
                prev = info[j - 1] if j > end else None
                if prev is None or prev[3] or prev[0] in ("define", "macro"):
                    name = declared_name(lines[j])
                    if first_name is None:
                        first_name = name
                    elif not name or not (opening != first_name or name.startswith(first_name) or
                                          re.search(r"(?<!\w)" + re.escape(name) + r"(?!\w)", text)):
                        break
                    members += 1
            j += 1
        if members >= 2 and j < n:
            out[start] = out[start].replace("///", "/// @{", 1)
            closes.append(j)
        i = end
    for j in closes:
        out[j] = "/** @} */ " + out[j] if out[j].strip() else "/** @} */"
    return out


def main():
    with open(sys.argv[1], encoding="utf-8") as f:
        lines = f.read().split("\n")
    sys.stdout.write("\n".join(filter_header(lines)))


if __name__ == "__main__":
    main()
