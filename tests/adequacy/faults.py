"""Faults of one token or one statement, for C++ and for Java."""
import collections
import re

TOKEN = re.compile(r"""(?P<skip>//[^\n]*|/\*.*?\*/|\s+|^[ \t]*\#(?:\\\n|[^\n])*)
    |"(?:\\.|[^"\\])*"|'(?:\\.|[^'\\])*'|[A-Za-z_]\w*|\d[\w.']*
    |<<=|>>=|\.\.\.|->\*|[=!<>]=|&&|\|\||->|::|\+\+|--|.""", re.S | re.M | re.X)
OTHERS = {"==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="],
          ">=": [">", "<"], "&&": ["||"], "||": ["&&"], "!": [""], "0": ["1"], "1": ["0"],
          "true": ["false"], "false": ["true"]}
BRANCHES = ("if", "for", "while", "switch", "else", "do", ":", "try", "catch")
NOTHING = (";", "nullptr", "null", "false", "0")
# What comes before a function or class, and its name; Java's with the type that it returns.
HEADING = re.compile(r"^(?:(?:class|struct) |(?:\w[\w:<>,*& ]*[ *&:])?(?=\w+\())(\w+)", re.M)
JAVA_HEADING = re.compile(
    r"^ {4,8}(?:@\w+ +)*(?:(?:public|protected|private|static|final|synchronized|default"
    r"|<[\w<> ,?]+>) +)*(?P<type>(?!return\b|new\b|throw\b|else\b)[\w.]+"
    r"(?:<[\w<>\[\], .?]*>)?(?:\[\])*) +(\w+)\([^;{]*\{"
    r"|^(?:(?:public|final|abstract) +)*(?:class|interface|enum|record) +(\w+)", re.M)
NUMBERS = ("byte", "short", "char", "int", "long", "float", "double")
Mutant = collections.namedtuple("Mutant", "file line place key text")


def nothing_of(java_type):
    """An expression for a result that says nothing; None for methods without one."""
    if java_type in NUMBERS:
        return "0"
    return {"void": None, "boolean": "false", None: None}.get(java_type, "null")


def mutants_of(file, text):
    """Every fault of a file, with the whole text that has it."""
    java = file.endswith(".java")
    tokens = [match for match in TOKEN.finditer(text) if not match["skip"]]
    words = [token[0] for token in tokens]
    headings = list((JAVA_HEADING if java else HEADING).finditer(text))
    other, stack = {}, []   # where a bracket's partner is
    for i, word in enumerate(words):
        if word in "({[":
            stack.append(i)
        elif word in ")}]":
            other[i] = stack.pop()
            other[other[i]] = i

    def heading(at):
        return next((each for each in reversed(headings) if each.start() <= at), None)

    def fault(kind, first, last, replacement):
        start, end = tokens[first].start(), tokens[last].end()
        begin, rest = text.rfind("\n", 0, start) + 1, text[end:text.find("\n", end)]
        shown = text[begin:start] + (text[start:end] if kind == "drop" else replacement) + rest
        name = heading(start)
        place = f"{file} " + (name[name.lastindex] if name else "")
        return Mutant(file, text.count("\n", 0, start) + 1, place,
                      f"{place} {kind}: {' '.join(shown.split())}",
                      text[:start] + replacement + text[end:])

    def condition(first, last, *forms):
        there = text[tokens[first].start():tokens[last].end()]
        return [fault("test", first, last, form.format(there)) for form in forms]

    def result(at):
        if not java:
            return "{}"
        before = heading(tokens[at].start())
        return nothing_of(before["type"] if before else None)

    blocks, skipped = [], 0   # of the blocks around: is each a branch?
    for i, word in enumerate(words):
        if word == "static_assert":
            skipped = other[i + 1]
        if i < skipped:
            continue
        if word == "{":
            before = other[i - 1] - 1 if words[i - 1] == ")" else i - 1
            blocks.append(words[before] in BRANCHES)
        elif word == "}":
            blocks.pop()
        around = text[tokens[i].start() - 1] + text[tokens[i].end():][:1]
        if around == "  " or word[0].isalnum() or word == "!":   # else < is a template's
            yield from (fault("replace", i, i, each) for each in OTHERS.get(word, ()))
        if word in ("if", "while", "for") and words[i + 1] == "(":
            first, last = i + 2, other[i + 1] - 1
            parts = [j for j in range(first, last) if words[j] == ";"]
            if word == "for" and len(parts) == 2:
                first, last = parts[0] + 1, parts[1] - 1
            if word == "if":
                yield from condition(first, last, "!({})", "({}) && false", "({}) || true")
            elif (word == "while" or parts) and first <= last:
                yield from condition(first, last, "({}) && false")
        elif word == "?" and around == "  ":
            first = i
            while words[first - 1] not in ("return", "->", *"=([,;{}:"):
                first = other.get(first - 1, first - 1)
            yield from condition(first, i - 1, "!({})")
        elif word == "return" and words[i + 1] not in NOTHING and result(i):
            yield fault("return", i, words.index(";", i) - 1, f"return {result(i)}")
        if any(blocks[-1:]) and words[i - 1] in "{};:" and word not in (
                *BRANCHES, *"({[]});", "case", "default"):
            end = i
            while words[end] not in ";)}]":
                end = other.get(end, end) + 1
            if words[end] == ";":
                yield fault("drop", i, end, ";")
