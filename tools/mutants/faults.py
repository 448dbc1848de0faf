"""Single faults that can be put into a C++ source: where, of which kind, what becomes of the text."""

import re
from dataclasses import dataclass

NEGATED = {"==": "!=", "!=": "==", "<": ">=", ">=": "<", ">": "<=", "<=": ">"}
SHIFTED = {"<": "<=", "<=": "<", ">": ">=", ">=": ">"}
OTHER = {"&&": "||", "||": "&&", "true": "false", "false": "true"}
ARRAY = re.compile(r"^ +(?!return |case )[\w:]+ \w+\[$", re.M)
LOCK = re.compile(r"(const )?(\w+::)*\w*Lock \w+\(")


@dataclass(frozen=True)
class Fault:
    path: str
    kind: str
    start: int
    end: int
    new: str

    def put_into(self, text):
        return text[: self.start] + self.new + text[self.end :]

    def line(self, text):
        return text.count("\n", 0, self.start) + 1

    def described(self, text):
        """The lines it touches, before and after, as one line."""
        first = text.rfind("\n", 0, self.start) + 1
        last = text.find("\n", self.end)
        old, new = text[first:last], self.put_into(text)[first : last + len(self.new) - (self.end - self.start)]
        return " ".join(old.split()) + "  =>  " + " ".join(new.split())


def masked(text):
    """`text` with blanks for comments, directives, assertions at compile time and what is quoted."""

    def blank(match):
        token = match.group()
        if token[0] in "\"'":
            return token[0] + re.sub(r"[^\n]", " ", token[1:-1]) + token[-1]
        return re.sub(r"[^\n]", " ", token)

    tokens = (
        r"//[^\n]*|/\*.*?\*/"
        r'|"(?:\\.|[^"\\\n])*"|(?<![\w])\'(?:\\.|[^\'\\\n])+\''
        r"|^[ \t]*#(?:[^\n]*\\\n)*[^\n]*"
        r"|\bstatic_assert\(.*?\);"
    )
    return re.sub(tokens, blank, text, flags=re.S | re.M)


def closing(code, opening):
    """Where the bracket that opens at `opening` closes; None if it does not."""
    depth = 0
    for at in range(opening, len(code)):
        depth += (code[at] in "([{") - (code[at] in ")]}")
        if depth == 0:
            return at
    return None


def top_level(code):
    """`code` without what is in brackets."""
    depth, kept = 0, []
    for letter in code:
        depth -= letter in ")]}"
        if depth == 0:
            kept.append(letter)
        depth += letter in "([{"
    return "".join(kept)


def scopes(code):
    """For each position whether the innermost brace around it holds statements ('block'), members
    ('class') or values, and how many parentheses are open within it."""
    kinds, parens, stack, begin = [], [], [("file", 0)], 0
    for at, letter in enumerate(code):
        kind, depth = stack[-1]
        if letter == "{":
            stack.append((kind_of_brace(code[begin:at].strip(), kind), 0))
        elif letter == "}" and len(stack) > 1:
            stack.pop()
        elif letter in "()":
            stack[-1] = (kind, depth + (1 if letter == "(" else -1))
        if letter in ";{}":
            begin = at + 1
        kinds.append(stack[-1][0])
        parens.append(stack[-1][1])
    return kinds, parens


def kind_of_brace(before, around):
    if re.search(r"\)\s*(const|noexcept|override|mutable|->[\w:<>*& ]+|[A-Z]{2,}\(.*\)|\s)*$", before):
        return "block"
    if re.search(r"(\belse|\bdo|\btry|:|(^|[^\w\]])\[[^\]]*\])$", before):
        return "block"
    if before.startswith("namespace") or before.startswith("extern"):
        return "file"
    if re.match(r"(template <.*>\s*)?(typedef )?(class|struct|union|enum)\b", before):
        return "class"
    return "block" if not before and around == "block" else "value"


def faults_of(path, text):
    """All faults that can be put into the source `text`."""
    code = masked(text)
    kinds, parens = scopes(code)
    found = []

    def add(kind, start, end, new):
        found.append(Fault(path, kind, start, end, new))

    for match in re.finditer(r"(?<= )(==|!=|<=|>=|<|>)(?= )", code):
        add("comparison", *match.span(), NEGATED[match[1]])
        if match[1] in SHIFTED:
            add("boundary", *match.span(), SHIFTED[match[1]])
    for match in re.finditer(r" [+-] 1\b(?!['.])", code):
        add("boundary", *match.span(), "")

    for match in re.finditer(r"(?<![\w.'])(0[xX][\da-fA-F']+|\d[\d']*)(?=[uUlL]*\b)(?![.'])", code):
        before = code[: match.start()]
        if before.endswith("[") and (kinds[match.start()] == "class" or ARRAY.search(before)):
            continue  # the size of an array
        if re.search(r"\)( const)? = $", before[-12:]):
            continue  # a function without a body
        value = int(match[1].replace("'", ""), 0 if match[1][:2] in ("0x", "0X") else 10)
        form = "0x{:x}" if match[1][:2] in ("0x", "0X") else "{}"
        # One millisecond or byte of many is no fault that a test could notice.
        others = {value + 1, value - 1} if value < 100 else {value * 2, value // 2}
        for other in sorted(others - {-1}, reverse=True):
            add("constant", *match.span(), form.format(other))
    for match in re.finditer(r"\b(true|false)\b", code):
        add("constant", *match.span(), OTHER[match[1]])

    for match in re.finditer(r"\b(?:if|while) \(", code):
        end = closing(code, match.end() - 1)
        if end is None:
            continue
        start = match.end()
        if ";" in top_level(code[start:end]):
            start += code[start:end].rindex(";") + 1
        if " = " in top_level(code[start:end]):
            continue  # a declaration
        asked = text[start:end]
        add("condition", start, end, f"!({asked})")
        add("condition", start, end, f"({asked}) || true")
        add("condition", start, end, f"({asked}) && false")
    for match in re.finditer(r"(?<= )(&&|\|\|)(?= )", code):
        add("condition", *match.span(), OTHER[match[1]])
    for match in re.finditer(r"!(?=[\w(])", code):
        add("condition", *match.span(), "")

    for match in re.finditer(r'(?<!extern )"([^"\n]*)"', code):
        start = match.start(1)
        quoted = text[start : match.end(1)]
        # No letter of a conversion or an escape: what is left would not compile.
        letters = [at.start() for at in re.finditer(r"(?<![%\\\w])\w|(?<=[a-z])[a-z]", quoted)
                   if not re.search(r"(%[-+ #0-9.*]*[hlz]*|\\x?[0-9a-f]*)$", quoted[: at.start()])]
        for at in letters:
            add("text", start + at, start + at + 1, "y" if quoted[at] == "x" else "x")
        if not quoted:
            add("text", start, start, "x")

    for start, end in statements(code, kinds, parens):
        statement = code[start:end]
        if LOCK.match(statement):
            add("lost lock", start, end + 1, "{}")
        elif (kind := removable(statement)) is not None:
            add(kind, start, end + 1, "{}")
    return found


def statements(code, kinds, parens):
    """Where a statement of a function may begin, and its semicolon."""
    for match in re.finditer(r"^ +(?=[\w*+(-])|\belse (?=[\w*+(-])|\b(?:if|for|while) \(", code, re.M):
        start = match.end()
        if match[0].endswith("("):
            if (end := closing(code, start - 1)) is None or not re.match(r" [\w*+(-]", code[end + 1 :]):
                continue
            start = end + 2
        elif not re.search(r"[;{})]$|:$|\belse$", code[: match.start()].rstrip()[-6:]):
            continue
        if kinds[start] != "block" or parens[start] != 0:
            continue
        depth = 0
        for at in range(start, len(code)):
            depth += (code[at] in "([{") - (code[at] in ")]}")
            if depth < 0:
                break
            if depth == 0 and code[at] == ";":
                yield start, at
                break


def removable(statement):
    """Of which kind it is to leave this statement out; None for what is no call or assignment."""
    outside = top_level(statement)
    if re.match(r"(if|for|while|switch|do|else|case|default|return|break|continue|using|goto|delete"
                r"|throw|static|const|constexpr|auto|struct|co_)\b", outside):
        return None
    if re.match(r"(\+\+|--)[\w.>-]+$|[\w.>-]+(\+\+|--)$", outside):
        return "removed assignment"
    if match := re.match(r"\*?(\([^)]*\))?[\w:.>()\[\]-]+ ([-+|&^*/]|<<|>>)?= ", outside):
        return "removed assignment"
    if re.match(r"(\(\))?[\w:.<>()\[\]-]+\)$|[\w:.]+ << ", outside):
        return "removed call"
    return None
