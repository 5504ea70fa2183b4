"""The faults that can be planted into a C++ source, one at a time.

This goes by tokens and by the layout that clang-format gives the project (binary operators stand between blanks, those of
templates and pointers do not); it is no parser. What it takes for code and is none does not compile, and is not counted.
"""
import re
from typing import NamedTuple

TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<text>(?:u8|[uUL])?"(?:\\.|[^"\\\n])*")
      | (?P<char>'(?:\\.|[^'\\\n])+')
      | (?P<number>(?:0[xX][0-9a-fA-F']+|\d[\d']*(?:\.\d*)?)[uUlLf]*)
      | (?P<name>[A-Za-z_]\w*)
      | (?P<blank>\\\n|\s+)
      | (?P<directive>(?:(?<=\n)|\A)\#[ ]*(?:define[ ]+\w+(?:\([^)]*\))?|(?:[^\n\\]|\\.)*))
      | (?P<op>\.\.\.|<<=|>>=|->\*|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|[^\s\w])""",
    re.VERBOSE | re.DOTALL)

OPERATORS = {
    "==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"],
    "<<": [">>"], ">>": ["<<"], "&": ["|"], "|": ["&"], "^": ["&"],
    "+=": ["-="], "-=": ["+="], "|=": ["&="], "&=": ["|="]}
RELATIONS = {"==", "!=", "<", "<=", ">", ">="}
OPPOSITES = {"true": "false", "false": "true", "TRUE": "FALSE", "FALSE": "TRUE"}
NOT_CODE = {"static_assert", "template", "__attribute__", "__asm__", "using", "typedef", "friend"}
CONTROL = {"if", "while", "for", "switch"}
NO_STATEMENT = CONTROL | NOT_CODE | {"return", "case", "default", "do", "else", "goto", "struct", "class", "enum", "public",
                                     "private", "protected", "namespace"}
OPENING, CLOSING = {"(": ")", "[": "]", "{": "}"}, {")", "]", "}"}


class Token(NamedTuple):
    kind: str
    text: str
    start: int
    end: int


class Mutant(NamedTuple):
    start: int
    end: int
    new: str

    def applied(self, source):
        return source[:self.start] + self.new + source[self.end:]

    def lines(self, source):
        """The lines that it touches, without and with the fault, as one line each."""
        first = source.rfind("\n", 0, self.start) + 1
        last = source.find("\n", self.end)
        last = len(source) if last < 0 else last
        before, after = source[first:last], source[first:self.start] + self.new + source[self.end:last]
        return " ".join(before.split()), " ".join(after.split())

    def excerpt(self, source):
        """The lines around it with the fault, which tell it from all others but those in lines that are alike."""
        lines = source.split("\n")
        first = max(0, source.count("\n", 0, self.start) - 3)
        last = source.count("\n", 0, self.end) + 4
        start = sum(len(line) + 1 for line in lines[:first])
        text = "\n".join(lines[first:last])
        return text[:self.start - start] + "\x01" + self.new + "\x01" + text[self.end - start:]

    def line_number(self, source):
        return source.count("\n", 0, self.start) + 1


def tokens_of(source):
    tokens = [Token(m.lastgroup, m.group(), m.start(), m.end()) for m in TOKEN.finditer(source)]
    return [token for token in tokens if token.kind not in ("comment", "blank", "directive")]


class Planter:
    def __init__(self, source):
        self.source = source
        self.tokens = tokens_of(source)
        self.partner = self._partners()
        self.mutants = []

    def plant(self):
        self._mark()
        for i, token in enumerate(self.tokens):
            if self.skipped[i]:
                continue
            if token.kind == "op":
                self._operator(i, token)
            elif token.kind == "number":
                self._number(i, token)
            elif token.kind == "char":
                self._replace(token, r"'\1'" if token.text == r"'\0'" else ("'_'" if token.text != "'_'" else "'-'"))
            elif token.kind == "text":
                self._replace(token, token.text[:-1] + '~"')
            elif token.text in OPPOSITES:
                self._replace(token, OPPOSITES[token.text])
            if self.in_body[i]:
                self._code(i, token)
        return self._unique()

    def _code(self, i, token):
        if self.starts[i]:
            self._statement(i)
        if token.text == "?":
            self._ternary(i)
        elif token.text in CONTROL and self._text(i + 1) == "(":
            self._condition(i, token.text)
        elif token.text == "return":
            self._result(i)
        elif token.text == "MURN_CHECK":
            self._add(self.tokens[i + 1].end, self.tokens[self.partner[i + 1]].start, "({})")
        if token.kind == "name" and token.text not in NO_STATEMENT and self._text(i + 1) == "(":
            self._arguments(i + 1)

    # What is where.

    def _text(self, i):
        return self.tokens[i].text if 0 <= i < len(self.tokens) else ""

    def _partners(self):
        partner, open_ones = {}, []
        for i, token in enumerate(self.tokens):
            if token.kind == "op" and token.text in OPENING:
                open_ones.append(i)
            elif token.kind == "op" and token.text in CLOSING and open_ones:
                partner[open_ones[-1]] = i
                partner[i] = open_ones.pop()
        return partner

    def _mark(self):
        """Which tokens are in a function's body, which begin a statement there, and which are no code at all."""
        count = len(self.tokens)
        self.in_body, self.starts, self.skipped = [False] * count, [False] * count, [False] * count
        scopes, fresh, head, skip_to = ["declarations"], True, 0, -1
        for i, token in enumerate(self.tokens):
            self.in_body[i] = scopes[-1] == "body"
            if fresh:
                head = i
                self.starts[i] = self.in_body[i]
            if i > skip_to and token.text in NOT_CODE:
                skip_to = self._end_of(i)
            if i > skip_to and token.text == "extern" and self._text(i + 1) == '"C"':
                skip_to = i + 1
            self.skipped[i] = i <= skip_to
            fresh = False
            if token.text == "{" and token.kind == "op":
                scopes.append(self._scope(head, i, scopes[-1]))
                fresh = scopes[-1] != "values"
            elif token.text == "}" and token.kind == "op":
                fresh = scopes[-1] != "values"
                if len(scopes) > 1:
                    scopes.pop()
            elif token.text == ";" or token.text in ("else", "do"):
                fresh = True
            elif token.text == ":" and self._text(head) in ("case", "default", "public", "private", "protected"):
                fresh = True
            elif token.text == ")" and self._text(self.partner.get(i, 0) - 1) in CONTROL:
                fresh = True

    def _end_of(self, i):
        if self._text(i) == "template":
            depth = 0
            for k in range(i + 1, len(self.tokens)):
                depth += {"<": 1, ">": -1, ">>": -2}.get(self._text(k), 0)
                if depth <= 0:
                    return k
        if self._text(i + 1) == "(":
            return self.partner[i + 1]
        while i < len(self.tokens) and self._text(i) != ";":
            i += 1
        return i

    def _scope(self, head, brace, outer):
        words = [token.text for token in self.tokens[head:brace]]
        last = self._text(brace - 1)
        if last == ")" or last in ("else", "do", "const", "override", "noexcept", "final", "mutable"):
            return "body"
        if outer == "body":
            return "body" if last in (":", "]") or not words else "values"
        if any(word in ("namespace", "class", "struct", "union", "enum", "extern") for word in words):
            return "declarations"
        return "body" if last == "}" else "values"

    # The faults.

    def _add(self, start, end, new):
        self.mutants.append(Mutant(start, end, new.format(self.source[start:end])))

    def _replace(self, token, new):
        self.mutants.append(Mutant(token.start, token.end, new))

    def _is_binary(self, token):
        return self.source[token.start - 1].isspace() and self.source[token.end:token.end + 1].isspace()

    def _operator(self, i, token):
        before = self.tokens[i - 1] if i else token
        if before.text == "operator":
            return
        if token.text in OPERATORS and self._is_binary(token):
            for new in OPERATORS[token.text]:
                self._replace(token, new)
            if token.text == "|":
                self._flag(i)
        elif token.text in ("++", "--"):
            self._replace(token, "--" if token.text == "++" else "++")
        elif token.text in ("!", "-") and not self._is_binary(token):
            self._replace(token, "")
        elif token.text == "~" and self.in_body[i] and before.text not in ("::", "virtual"):
            self._replace(token, "")

    def _flag(self, i):
        """a | b: each of the two alone, where they are names."""
        right = i + 1
        while self._text(right + 1) == "::":
            right += 2
        if self.tokens[right].kind == "name" and self._text(right + 1) != "(":
            self.mutants.append(Mutant(self.tokens[i].start, self.tokens[right].end, ""))
        left = i - 1
        while self._text(left - 1) == "::":
            left -= 2
        if self.tokens[left].kind == "name":
            self.mutants.append(Mutant(self.tokens[left].start, self.tokens[i].end, ""))

    def _number(self, i, token):
        is_pure = self._text(i - 1) == "=" and self._text(i - 2) in (")", "const", "noexcept", "override")
        digits = re.match(r"(0[xX][0-9a-fA-F]+|\d+)(.*)", token.text.replace("'", ""), re.DOTALL)
        if is_pure or digits is None:
            return
        is_octal = re.fullmatch("0[0-7]+", digits[1])
        value, rest = int(digits[1], 8 if is_octal else 0), digits[2]
        self._replace(token, "%d%s" % (value + 1, rest))
        if value == 1:
            self._replace(token, "0" + rest)

    def _statement(self, i):
        head = self.tokens[i]
        if head.kind == "op" and head.text not in ("*", "++", "--", "::", "("):
            return
        end = i
        while end < len(self.tokens) and self._text(end) != ";":
            if self._text(end) in ("(", "[", "{"):
                end = self.partner.get(end, end)
            end += 1
        if end >= len(self.tokens):
            return
        words = [token.text for token in self.tokens[i:end]]
        bare_return = words == ["return"]
        if (words[0] in NO_STATEMENT and not bare_return) or (self._is_declaration(i, end) and "=" in words):
            return
        if self._is_declaration(i, end) and not self._text(end - 1) in (")", "}"):
            return
        self.mutants.append(Mutant(head.start, self.tokens[end].end, "{}"))

    def _is_declaration(self, i, end):
        kinds = [token.text if token.kind == "op" else "name" for token in self.tokens[i:end]]
        if self._text(i) in ("const", "auto", "static", "constexpr", "unsigned", "long", "int", "char", "bool"):
            return True
        if self._text(i) in ("delete", "throw", "goto"):
            return False
        return re.match(r"(:: )?name( :: name)*( <.*?>)?( [*&])*( name)+( |$)", " ".join(kinds)) is not None

    def _condition(self, i, word):
        first, last = self.tokens[i + 1].end, self.tokens[self.partner[i + 1]].start
        inner = [k for k in range(i + 2, self.partner[i + 1]) if self._text(k) == ";"]
        if word == "for" and len(inner) == 2:
            first, last = self.tokens[inner[0]].end, self.tokens[inner[1]].start
            if self.source[first:last].strip():
                self._add(first, last, " false &&{}")
            return
        if word in ("for", "switch") or inner:
            return
        declared = [k for k in range(i + 2, self.partner[i + 1]) if self._text(k) == "="]
        if declared:  # if (Thing* const thing = find())
            name = self._text(declared[0] - 1)
            for condition in ("!" + name, "true", "false"):
                self._add(first, last, "{}; " + condition)
            return
        inside = [token.text for token in self.tokens[i + 2:self.partner[i + 1]]]
        if {"&&", "||"} & set(inside) or (inside[0] != "!" and not RELATIONS & set(inside)):
            self._add(first, last, "!({})")  # in the others the operator is turned round
            if word == "if":
                self._add(first, last, "({}) || true")
        self._add(first, last, "({}) && false")

    def _ternary(self, i):
        depth, colon, k = 0, None, i + 1
        while k < len(self.tokens):
            text = self._text(k)
            if text in ("(", "[", "{"):
                k = self.partner.get(k, k)
            elif text == "?":
                depth += 1
            elif text == ":" and depth == 0 and colon is None:
                colon = k
            elif text == ":":
                depth -= 1
            elif text in (";", ",", ")", "]", "}") and colon is not None:
                break
            k += 1
        if colon is None or k >= len(self.tokens):
            return
        yes = self.source[self.tokens[i].end:self.tokens[colon].start]
        no = self.source[self.tokens[colon].end:self.tokens[k].start]
        self.mutants.append(
            Mutant(self.tokens[i].end, self.tokens[k].start, " " + no.strip() + " : " + yes.strip()))

    def _result(self, i):
        end = i + 1
        while self._text(end) != ";":
            end = self.partner.get(end, end) + 1 if self._text(end) in ("(", "[", "{") else end + 1
        value = self.source[self.tokens[i].end:self.tokens[end].start].strip()
        if value and value not in OPPOSITES and value not in ("{}", "0", "nullptr"):
            self.mutants.append(Mutant(self.tokens[i].end, self.tokens[end].start, " {}"))

    def _arguments(self, opening):
        closing = self.partner[opening]
        commas, k = [], opening + 1
        while k < closing:
            if self._text(k) in ("(", "[", "{"):
                k = self.partner[k]
            elif self._text(k) == ",":
                commas.append(k)
            k += 1
        borders = [opening] + commas + [closing]
        for a, b, c in zip(borders, borders[1:], borders[2:]):
            left = self.source[self.tokens[a].end:self.tokens[b].start].strip()
            right = self.source[self.tokens[b].end:self.tokens[c].start].strip()
            if left != right:
                blank = "" if a == opening else " "
                self.mutants.append(Mutant(self.tokens[a].end, self.tokens[c].start, blank + right + ", " + left))

    def _unique(self):
        seen, unique = {self.source}, []
        for mutant in sorted(self.mutants):
            text = mutant.applied(self.source)
            if text not in seen:
                seen.add(text)
                unique.append(mutant)
        return unique


def mutants_of(source):
    """All faults for this source, in the order of the text."""
    return Planter(source).plant()
