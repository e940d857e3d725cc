# SPDX-License-Identifier: MIT
"""Spoils C++ sources, one place at a time: every mutant of a file is one small change that a tired hand could make.

The sources are read as tokens, not parsed: formatted by clang-format, they tell a comparison from a template's bracket
by the spaces around it. What the compiler refuses is no mutant; it costs a second and nothing else.
"""

import collections
import itertools
import re

TOKEN = re.compile(r"""
    (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<directive>^[ \t]*\#(?:[^\n]*\\\n)*[^\n]*)
  | (?P<string>(?:L|u8)?"(?:\\.|[^"\\])*")
  | (?P<char>L?'(?:\\.|[^'\\])*')
  | (?P<number>(?:0[xX][0-9a-fA-F]+|\d+\.\d*(?:e[+-]?\d+)?|\d+e[+-]?\d+|\d+)[uUlLfF]*)
  | (?P<name>[A-Za-z_]\w*)
  | (?P<sign><<=|>>=|<=>|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||\+=|-=|\*=|/=|%=|&=|\|=|::|\.\.\.|.)
""", re.X | re.S | re.M)

# By operator, what may stand in its place.
BINARY = {
    "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "==": ["!=", "<=", ">="], "!=": ["==", "<", ">"], "&&": ["||"], "||": ["&&"],
    "+": ["-"], "-": ["+"], "*": ["+", "/"], "/": ["*", "%"], "%": ["/", "*"], "&": ["|"],
    "+=": ["-=", "="], "-=": ["+=", "="], "/=": ["*="], ">>=": ["<<="], "=": [],
}
NAMES = {
    "true": ["false"], "false": ["true"], "break": ["continue"], "continue": ["break"],
    "SEEK_SET": ["SEEK_CUR", "SEEK_END"], "SEEK_END": ["SEEK_SET"], "EOF": ["0"],
}
FUNCTIONS = {
    "min": ["max"], "max": ["min"], "begin": ["end"], "end": ["begin"], "front": ["back"], "back": ["front"],
    "push_back": ["push_front"], "emplace_back": ["emplace_front"], "emplace_front": ["emplace_back"],
    "pop_back": ["pop_front"], "pop_front": ["pop_back"], "next": ["prev"], "prev": ["next"],
}
NAMES.update(FUNCTIONS)
# Narrower ones; within a cast also those of the other sign.
TYPES = {
    "std::int64_t": ["std::int32_t"], "std::uint64_t": ["std::uint32_t"],
    "std::int32_t": ["std::int16_t"], "std::uint32_t": ["std::uint16_t"],
    "std::size_t": ["unsigned short"], "unsigned char": ["signed char"], "unsigned long": ["unsigned short"],
    "unsigned int": ["unsigned char"], "int": ["short"], "double": ["float"],
}
CASTS = {
    "std::int64_t": ["std::uint64_t"], "std::uint64_t": ["std::int64_t"],
    "std::int32_t": ["std::uint32_t"], "std::uint32_t": ["std::int32_t"], "int": ["unsigned"],
}
TYPE = re.compile(r"(?<![\w:])(" + "|".join(sorted(map(re.escape, TYPES), key=len, reverse=True)) + r")(?![\w:])")
OPENING = {"(": ")", "[": "]", "{": "}"}
# A member with its first value.
MEMBER = re.compile(r"^ +(?!static|constexpr)[\w:<>]+ m_\w+(?:\{| = )[^,]*;")
# What a mutant would break in the build and nowhere else.
ASSERTION = re.compile(r"^(static_assert|QF_ASSERT)")

# old, new: the lines that the mutant changes, without their indentation. number: which of the file's equal lines it is,
# from 1 on. choice: (start, end, is_body) of the function's body or the value around it, which can stand in the program more
# than once, a number choosing at run time; None where the mutant needs a build of its own.
Mutant = collections.namedtuple("Mutant", "file start end replacement old new number choice")
Token = collections.namedtuple("Token", "kind text start end")


class Source:
    def __init__(self, name, text):
        self.name = name
        self.text = text
        self.tokens = [Token(m.lastgroup, m.group(), m.start(), m.end()) for m in TOKEN.finditer(text)
                       if not m.group().isspace()]
        self.code = [t for t in self.tokens if t.kind not in ("comment", "directive")]
        self.partner = {} # of each bracket, by index into code
        self.scope = []   # for each token of the code, the index of the innermost { around it, or None
        self._match_brackets()

    def _match_brackets(self):
        open_brackets, braces = [], [None]
        for i, token in enumerate(self.code):
            if token.text in OPENING:
                open_brackets.append(i)
            elif token.text in OPENING.values():
                start = open_brackets.pop()
                self.partner[start], self.partner[i] = i, start
                if token.text == "}":
                    braces.pop()
            self.scope.append(braces[-1])
            if token.text == "{":
                braces.append(i)

    def header_of(self, brace):
        """What stands in front of a {, back to the last statement's end."""
        i = brace
        while i > 0 and self.code[i - 1].text not in (";", "{", "}"):
            i = self.partner[i - 1] if self.code[i - 1].text in (")", "]") else i - 1
        return self.text[self.code[i].start:self.code[brace].start].strip()

    def is_function(self, brace):
        """Whether statements stand between these braces, and not declarations or values."""
        if brace is None:
            return False
        header = re.sub(r"template <[^>]*>\s*", "", self.header_of(brace))
        if re.search(r"\b(namespace|class|struct|enum|extern)\b", header) and not header.endswith(")"):
            return False
        return re.search(r"(\)(\s*(const|noexcept|override|mutable))*|\belse|\btry|\bdo|\])$", header) is not None or (
            header == "" and self.is_function(self.scope[brace])) or re.search(r"\)\s*:\s", header) is not None or (
            header.startswith("template") and header.endswith(")"))

    def bodies(self):
        """The { of each function that may look at the program's memory, and that no other function surrounds."""
        for i, token in enumerate(self.code):
            if token.text == "{" and self.is_function(i) and not self.is_function(self.scope[i]):
                header = self.header_of(i)
                if not re.search(r"\[.*\]\s*\(", header) and not (self.name == "HostRecords.h" and "constexpr" in header):
                    yield i

    def is_literal(self, start, end):
        return any((t.start, t.end) == (start, end) and t.kind in ("number", "name") for t in self.code)

    def spaced(self, i):
        token = self.code[i]
        return self.text[token.start - 1:token.start].isspace() and self.text[token.end:token.end + 1].isspace()

    def walk(self, i, step, stops):
        """The last index before one of the stops on this level, from i on."""
        into = OPENING if step > 0 else OPENING.values()
        while 0 <= i + step < len(self.code):
            text = self.code[i + step].text
            if text in into:
                i = self.partner[i + step]
                continue
            if text in stops and not (text in BINARY and not self.spaced(i + step)):
                break
            i += step
        return i

    def arguments(self, opening):
        """(start, end) of each of the expressions between two brackets, in characters."""
        closing = self.partner[opening]
        if closing == opening + 1:
            return []
        bounds, start, i = [], opening + 1, opening + 1
        while i < closing:
            if self.code[i].text in OPENING:
                i = self.partner[i]
            if self.code[i].text == ",":
                bounds.append((self.code[start].start, self.code[i - 1].end))
                start = i + 1
            i += 1
        if start < closing:
            bounds.append((self.code[start].start, self.code[closing - 1].end))
        return bounds

    def statements(self):
        """(start, end) of simple statements, in tokens, by the { that they stand in."""
        result = collections.defaultdict(list)
        start = None
        for i, token in enumerate(self.code):
            previous = self.code[i - 1].text if i else ";"
            if previous in (";", "{", "}") or (previous == ")" and self._is_condition(self.partner[i - 1])):
                start = i
            if token.text == ";" and start is not None and self.scope[start] == self.scope[i]:
                if self.is_function(self.scope[i]) and not self._inside_brackets(start, i):
                    result[self.scope[i]].append((start, i))
                start = None
        return result

    def _is_condition(self, opening):
        return opening > 0 and (self.code[opening - 1].text in ("if", "while", "for", "constexpr"))

    def _inside_brackets(self, start, end):
        depth = 0
        for token in self.code[start:end]:
            depth += (token.text == "(") - (token.text == ")")
            if depth < 0:
                return True
        return depth != 0


def edits(source):
    """(start, end, replacement) for everything that can be spoiled."""
    code, text = source.code, source.text
    for i, token in enumerate(code):
        spaced = source.spaced(i)
        before = code[i - 1].text if i else ""
        if token.kind == "sign" and spaced and token.text in BINARY and not before == "operator":
            # Nothing is below null, nothing without a sign below 0, and texts have no order that means anything.
            is_edge = code[i + 1].text in ("nullptr", "0") or code[i + 1].kind == "string"
            others = BINARY[token.text][:1] if is_edge else BINARY[token.text]
            for other in others:
                yield token.start, token.end, other
            yield from dropped_operands(source, i)
        elif token.text in ("++", "--"):
            yield token.start, token.end, "--" if token.text == "++" else "++"
        elif token.text in ("!", "-") and not spaced and before != "operator":
            yield token.start, token.end, ""
        elif token.text == "?" and spaced:
            yield from conditional(source, i)
        elif token.text == "&" and re.match(r"& \w+ = ", text[token.start:]) and "const" not in line_at(text, token.start):
            yield token.start, token.end, "" # a copy
        elif token.kind == "name":
            is_call = code[i + 1].text == "("
            for other in NAMES.get(token.text, []) if is_call or token.text not in FUNCTIONS else []:
                yield token.start, token.end, other
            if token.text in ("if", "while", "for"):
                yield from conditions(source, i)
            if token.text == "return":
                yield from returns(source, i)
        elif token.kind in ("number", "string", "char"):
            for other in literals(token):
                yield token.start, token.end, other
        if token.text in ("(", "{"):
            yield from lists(source, i)
        if token.text == "{" and source.is_function(i):
            yield from early_return(source, i)
    # Types in code, not in comments or texts.
    covered = [(t.start, t.end) for t in source.tokens if t.kind in ("comment", "directive", "string")]
    for match in TYPE.finditer(text):
        if not any(start <= match.start() < end for start, end in covered):
            is_cast = text.endswith("static_cast<", 0, match.start())
            if is_cast and match.group() == "unsigned char":
                continue # its eight bits stay what they are
            for other in TYPES[match.group()] + (CASTS.get(match.group(), []) if is_cast else []):
                yield match.start(), match.end(), other
    yield from neighbours(source)
    for block in source.statements().values():
        for start, end in block:
            # A function that ends without its value is none: the compiler's warnings are errors.
            if not (code[start].text == "return" and code[end + 1].text == "}" and end > start + 1):
                yield code[start].start, code[end].end, ";"
        for (a, b), (c, d) in zip(block, block[1:]):
            first, second = text[code[a].start:code[b].end], text[code[c].start:code[d].end]
            if b + 1 == c and not independent(first, second):
                yield code[a].start, code[d].end, second + text[code[b].end:code[c].start] + first


def independent(first, second):
    """Whether two statements that stand side by side are known to mean the same in either order."""
    def is_plain(statement): # it sets a value and calls nothing that could matter
        return not re.search(r"(?<!Set)(?<!Clear)(?<!MakeFourCC)(?<![>])\(", statement)
    if re.match(r"using |constexpr ", first) or re.match(r"using |constexpr ", second) or ".reserve(" in first:
        return True
    target = r"(?:[\w:<>]+[&*]* )*([\w.>-]+?)(?: [-+]?=|\.Set\(|\.Clear\()"
    one, two = re.match(target, first), re.match(target, second)
    return bool(one and two and is_plain(first) and is_plain(second) and
                not re.search(rf"(?<![\w.]){re.escape(one[1])}\b", second) and
                not re.search(rf"(?<![\w.]){re.escape(two[1])}\b", first))


def line_at(text, position):
    return text[text.rfind("\n", 0, position) + 1:text.find("\n", position)]


OPERATORS = set(BINARY) | {"?", ":", ",", ";", "return", "(", "{", "[", ")", "}", "]", "<<", "|"}


def dropped_operands(source, i):
    if source.code[i].text not in ("&&", "||", "+", "-", "*", "/", "%"):
        return
    stops = OPERATORS
    if source.code[i].text in ("&&", "||"): # whole comparisons
        stops = {"&&", "||", "?", ":", ",", ";", "return", "=", "(", "{", "[", ")", "}", "]"}
    left = source.code[source.walk(i, -1, stops)].start
    right = source.code[source.walk(i, 1, stops)].end
    yield left, source.code[i + 1].start, ""
    yield source.code[i - 1].end, right, ""


def conditional(source, i):
    stops = {"?", ":", ",", ";", "return", "=", "(", "{", "[", ")", "}", "]", "+", "<<"}
    condition = source.code[source.walk(i, -1, stops)].start, source.code[i - 1].end
    colon = i
    nested = 1
    while nested:
        colon += 1
        if source.code[colon].text in OPENING:
            colon = source.partner[colon]
        nested += (source.code[colon].text == "?") - (source.code[colon].text == ":")
    end = source.code[source.walk(colon, 1, stops)].end
    for value in ("true", "false"):
        yield *condition, value
    first = source.text[source.code[i + 1].start:source.code[colon - 1].end]
    second = source.text[source.code[colon + 1].start:end]
    yield source.code[i + 1].start, end, f"{second} : {first}"


def conditions(source, i):
    opening = i + 2 if source.code[i + 1].text == "constexpr" else i + 1
    start, end = source.code[opening].end, source.code[source.partner[opening]].start
    if source.code[i].text == "for":
        parts = [t for t in source.code[opening + 1:source.partner[opening]] if t.text == ";"]
        if len(parts) != 2 or not source.text[parts[0].end:parts[1].start].strip():
            return
        start, end = parts[0].end + 1, parts[1].start
    condition = source.text[start:end]
    if "&&" in condition or "||" in condition or not re.search(r" [=!<>]=? ", condition):
        yield start, end, f"!({condition})"
    yield start, end, "false"
    if source.code[i].text == "if":
        yield start, end, "true"


def returns(source, i):
    end = source.walk(i, 1, {";"})
    if end == i:
        return
    start, end = source.code[i + 1].start, source.code[end].end
    value = source.text[start:end]
    if value not in ("0", "nullptr", "false", "true") and value != "{}":
        yield start, end, "{}"
    if not re.match(r"[{\d]|nullptr|true|false", value):
        yield start, end, f"({value}) + 1"


def early_return(source, brace):
    header = source.header_of(brace)
    if re.match(r"(if|else|for|while|do|try|catch|\})", header) or header == "" or source.partner[brace] == brace + 1:
        return
    if re.fullmatch(r"\{ return (0|nullptr|false); \}", source.text[source.code[brace].start:source.code[source.partner[brace]].end]):
        return
    function = re.sub(r"^(template\s*<[^>]*>|inline|static|constexpr|virtual|explicit|\[\[.*?\]\])\s*", "", header)
    gives_nothing = re.match(r"(void|~|\w+\(|\w+::~?\w+\()", function)
    position = source.code[brace].end
    yield position, position, " return;" if gives_nothing else " return {};"


def literals(token):
    if token.kind == "number":
        digits, suffix = re.fullmatch(r"(0[xX][0-9a-fA-F]+|[\d.]+(?:e[+-]?\d+)?)([uUlLfF]*)", token.text).groups()
        if re.search(r"[.e]", digits) and not digits.lower().startswith("0x"):
            yield f"({token.text} + 1)"
            return
        value = int(digits, 0)
        for other in {value + 1, value - 1, 0} - {value}:
            if other >= 0:
                yield (f"0x{other:X}" if digits.lower().startswith("0x") else str(other)) + suffix
            elif not suffix:
                yield str(other)
    elif token.kind == "string":
        prefix, content = re.fullmatch(r'([^"]*)"(.*)"', token.text, re.S).groups()
        if content and "\\" not in content:
            yield f'{prefix}"{content[:-1]}"'
            yield f'{prefix}"{chr(ord(content[0]) ^ 1)}{content[1:]}"'
            yield f'{prefix}"{content[:-1]}{chr(ord(content[-1]) ^ 1)}"'
        elif content:
            unit = re.compile(r"\\x[0-9A-Fa-f]{2}|\\?.")
            units = unit.findall(content)
            for i, one in enumerate(units):
                other = f"\\x{(int(one[2:], 16) + 1) % 256:02X}" if one.startswith("\\x") else "~"
                yield f'{prefix}"{"".join(units[:i])}{other}{"".join(units[i + 1:])}"'
    else:
        content = token.text.split("'")[1]
        if "\\" not in content:
            yield token.text.replace(content, chr(ord(content) + 1))
            yield token.text.replace(content, chr(ord(content) - 1))


def lists(source, i):
    bounds = source.arguments(i)
    is_values = source.code[i].text == "{" and not source.is_function(i)
    if source.code[i].text == "{" and (not is_values or ";" in source.text[source.code[i].start:source.code[source.partner[i]].end]):
        return
    if source.code[i].text == "(" and i and source.code[i - 1].text in ("if", "for", "while"):
        return
    for (a, b), (c, d) in zip(bounds, bounds[1:]):
        first, second = source.text[a:b], source.text[c:d]
        if first != second:
            yield a, d, second + source.text[b:c] + first
    if is_values and source.text[source.code[i].start:source.code[source.partner[i]].end] != "{0}": # which is {}
        for (a, b), (c, d) in zip(bounds, bounds[1:] + [(None, None)]):
            yield a, c if c is not None else b, ""
    elif len(bounds) == 1 and source.code[i - 1].kind == "name" and re.fullmatch(r"[A-Z]\w*", source.code[i - 1].text):
        # The call of a function, without the function.
        behind = source.code[source.partner[i] + 1].text
        if i > 1 and source.code[i - 2].text not in (".", "->", "~") and behind not in ("{", "const", "override", "noexcept", ":"):
            yield source.code[i - 1].start, source.code[i].start, ""


def neighbours(source):
    """A member for its neighbour of the same type."""
    declared = re.findall(r"^ +([\w:<>, ]+?) (m_\w+)(?: =|\{|;)", source.declarations, re.M)
    others = {}
    for kind, group in itertools.groupby(declared, key=lambda d: d[0]):
        names = [name for _, name in group]
        for name, other in zip(names, names[1:] + names[:1]):
            if name != other:
                others[name] = other
    for i, token in enumerate(source.code):
        if token.text in others and source.is_function(source.scope[i]):
            yield token.start, token.end, others[token.text]


def mutants(name, text, declarations):
    """All mutants of a file. declarations: the text of the header whose members it uses."""
    source = Source(name, text)
    source.declarations = declarations
    bodies = [(source.code[i].end, source.code[source.partner[i]].start, True) for i in source.bodies()]
    seen = {}
    for start, end, replacement in edits(source):
        first = text.rfind("\n", 0, start) + 1
        last = text.find("\n", end)
        old = tuple(line.strip() for line in text[first:last].splitlines())
        new = tuple(line.strip() for line in (text[first:start] + replacement + text[end:last]).splitlines())
        if old != new and not ASSERTION.match(old[0]):
            number = text.count("\n" + text[first:last] + "\n", 0, first) + 1
            choice = next((body for body in bodies if body[0] <= start and end <= body[1]), None)
            if choice is None and MEMBER.match(line_at(text, start)) and source.is_literal(start, end):
                choice = (start, end, False)
            seen.setdefault((old, new, number), Mutant(name, start, end, replacement, old, new, number, choice))
    return sorted(seen.values())


CHOICE = """// Which mutant this program is: each has its number, and 0 is the program as it was written.
#pragma once
#include <cstdlib>
inline const int g_mutant = [] {
    const char* const number = std::getenv("QF_MUTANT");
    return number != nullptr ? std::atoi(number) : 0;
}();
"""


def with_choices(name, text, numbered):
    """The text with all mutants that have a choice in it. numbered: (number, mutant) of this file.

    The compiler names a mutant that it refuses by its number: mutant-17."""
    units = collections.defaultdict(list)
    for number, mutant in numbered:
        units[mutant.choice].append((number, mutant))
    for (start, end, is_body), some in sorted(units.items(), reverse=True):
        original = text[start:end]
        line = text.count("\n", 0, start) + 1
        last = text.count("\n", 0, end) + 1
        spoiled = [(n, original[:m.start - start] + m.replacement + original[m.end - start:]) for n, m in some]
        if is_body:
            choice = " switch (g_mutant) {\n" + "".join(
                f'case {n}: {{\n#line 1 "mutant-{n}"\n{body}\n}} break;\n' for n, body in spoiled)
            choice += f'default: {{\n#line {line} "{name}"\n{original}\n}} }}\n#line {last} "{name}"\n'
        else:
            choice = "(" + "".join(f'\n#line 1 "mutant-{n}"\ng_mutant == {n} ? {value} :' for n, value in spoiled)
            choice += f'\n#line {line} "{name}"\n{original})'
        text = text[:start] + choice + text[end:]
    if units and name != "HostRecords.h": # nothing else is asked for its value while it is compiled
        text = re.sub(r"^constexpr (?=[\w:<> ]+\([^;]*\{)", "inline ", text, flags=re.M)
    return f'#include "Choice.h"\n#line 1 "{name}"\n' + text if units else text
