# SPDX-License-Identifier: GPL-2.0-only
"""The mutants of a C++ source: small faults, one at a time, that a test should notice.

It reads text, not syntax: the style of this project (clang-format, one statement a line, blanks around operators of two
operands) tells a comparison from a template and an expression from a declaration. A mutant that does not compile is
counted as such.
"""
import dataclasses
import re

COMPARISONS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
SIGNS = {" + ": " - ", " - ": " + ", " += ": " -= ", " -= ": " += ", "++": "--", "--": "++"}
JOINTS = {"&&": "||", "||": "&&"}
COMPARISON = re.compile(r"(?<= )(<=|>=|==|!=|<|>)(?= )")
SIGN = re.compile(r"(?<=[\w)\]]) \+ | - (?=[\w(])| \+= | -= |\+\+|--")
JOINT = re.compile(r"(?<= )(&&|\|\|)(?=\s)")
NUMBER = re.compile(r"(?<![\w.])(0x[0-9A-Fa-f]+|\d+)(?=[UuLl]*\b(?!\.))")
BRANCH = re.compile(r"\b(?:if|while) \(")
EQUALITY = re.compile(r"[^=!<>&|]* (?:==|!=) [^=!<>&|]*")  # its turn is a comparison's already
RETURN = re.compile(r"^(\s*)return ([^;{]+);", re.M)
# The first line of a function: of a member in its class it ends in the body's brace.
FUNCTION = re.compile(r"^(?!#|namespace|class|struct|enum|static_assert)(?:\w[^\n;=(]*[ *&])?([\w:~]+)\((?![^\n]*;$)|"
                      r"^  (?!if|for|while|switch|return|else|do\b)(?:\w[^\n;=(]*[ *&])?([\w~]+)\([^\n\[]*\{$", re.M)
# An expression that stands alone: no second name comes before its call, its assignment or its end.
STATEMENT = re.compile(
    r"^[ ]*(?!return\b[^;]|(?:assert|using|case|default|else|if|while|for|do|switch|try|public|private)\b)"
    r"((?:(?:\+\+|--|\*|delete |\(void\))*[\w:]+(?:\(|\.|->|\[|\+\+|--| [-+*/%|&^]?= ))[^;{}]*;"
    r"|return;|break;|continue;|(?:\+\+|--)[^;{}]*;|\*[^;{}]*;)", re.M)


@dataclasses.dataclass
class SMutant:
    file: str
    line: int
    function: str
    kind: str
    before: str  # what is changed, whole lines, blanks joined
    after: str
    source: str  # the whole mutated text

    def head(self):
        return {name: getattr(self, name) for name in ("file", "line", "function", "kind", "before", "after")}

    def key(self):
        return self.file, self.function, self.before, self.after


def code_only(text):
    """The text with comments, strings, includes and static assertions blanked, every character in its place."""
    def blank(found):
        return re.sub(r"[^\n]", " ", found[0])
    hidden = r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'|^#[^\n]*|static_assert\(.*?\);'
    return re.sub(hidden, blank, text, flags=re.M | re.S)


def closing(code, opening):
    depth = 0
    for place in range(opening, len(code)):
        depth += {"(": 1, ")": -1}.get(code[place], 0)
        if depth == 0:
            return place
    return None


def conditions(code):
    """(first, end) of what stands between the brackets of each if and while that declares nothing."""
    for found in BRANCH.finditer(code):
        first = found.end()
        end = closing(code, first - 1)
        if end is not None and not re.search(r"(?<![=!<>+|&-])=(?!=)|;", code[first:end]):
            yield first, end


def edits(code):
    """(kind, first, end, replacement) of every mutation."""
    tables = (("comparison", COMPARISON, COMPARISONS), ("sign", SIGN, SIGNS), ("joint", JOINT, JOINTS))
    for kind, pattern, table in tables:
        for found in pattern.finditer(code):
            yield kind, found.start(), found.end(), table[found[0]]
    for found in NUMBER.finditer(code):
        number = found[0]
        more = hex(int(number, 16) + 1) if "x" in number else str(int(number) + 1)
        yield "constant", found.start(), found.end(), more
    for first, end in conditions(code):
        if not EQUALITY.fullmatch(code[first:end]):
            yield "branch", first, end, f"!({code[first:end]})"
    for found in RETURN.finditer(code):
        if not EQUALITY.fullmatch(found[2]):
            opposite = {"true": "false", "false": "true"}.get(found[2], f"!({found[2]})")
            yield "return", found.start(2), found.end(2), opposite
    for found in STATEMENT.finditer(code):
        if is_statement(code, found.start(1)):
            yield "left out", found.start(1), found.end(1), ";"


def is_statement(code, place):
    """Not the second line of something longer."""
    return code[:place].rstrip().endswith((";", "{", "}", ")", ":", "else"))


def function_at(code, place):
    """The function around a place, as its head names it; what stands outside of all has none."""
    heads = [found for found in FUNCTION.finditer(code, 0, place)]
    return (heads[-1][1] or heads[-1][2]) if heads and not re.search(r"^}", code[heads[-1].end():place], re.M) else ""


def joined(text):
    return " ".join(text.split())


def mutants(file, text):
    code = code_only(text)
    for kind, first, end, replacement in sorted(edits(code), key=lambda edit: edit[1:]):
        # What was blanked inside what is replaced (a string in a condition) is taken from the text itself.
        if kind in ("branch", "return") and replacement.startswith("!("):
            replacement = f"!({text[first:end]})"
        line_first = text.rfind("\n", 0, first) + 1
        line_end = text.find("\n", end)
        before = joined(text[line_first:line_end])
        after = joined(text[line_first:first] + replacement + text[end:line_end])
        line = text.count("\n", 0, first) + 1
        mutated = text[:first] + replacement + text[end:]
        yield SMutant(file, line, function_at(code, first), kind, before, after, mutated)
