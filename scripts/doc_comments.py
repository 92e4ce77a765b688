#!/usr/bin/env python3
"""Reads a header of the house and prints it with its comments in the form that Doxygen takes for documentation.

    doc_comments.py HEADER       the header; Doxygen runs this as its input filter

Headers of the house carry plain "//" comments. What they stand for is told by their place:

    a comment above a declaration           describes it, and those of the same name that follow without an empty line
    ... that begins with "Each" or "Both"   describes all declarations that follow without an empty line or a comment
    a comment behind a field or a value     describes that
    a comment below #pragma once or #include, with an empty line behind it or a namespace, describes the file

"Threads:", "Errors:" and the like at the start of a comment's line become paragraphs, "REQUIRES:" a precondition.
Constructors, destructors and assignments that the compiler writes or that are deleted need no comment: what they do
the language tells. Lines keep their numbers, so that a warning names the line of the header.
"""

import re
import sys

LABEL = re.compile(r"^([A-Z][A-Za-z ]{2,14}): {2,}(?=\S)|^(Threads|Units|Beware|Locks|Order|Results): (?=\S)")
OPENS = re.compile(r"^\s*(?:template\s*<[^{;]*>\s*)?(namespace|extern \"C\"|class|struct|union|enum)\b")


def escaped(text):
    """The text as Doxygen prints it unchanged: none of it is a command, a tag or a reference."""
    return re.sub(r"([\\@<>#%&])", r"\\\1", text)


def code_blocks(lines):
    """First and last line of each indented part that has an empty line before and behind it."""
    blocks, begin = [], None
    for number, line in enumerate(lines):
        if not line.strip():
            if begin is not None and number > begin + 1:
                blocks.append((begin, number))
            begin = number
        elif not line.startswith("   ") or line.strip().startswith("- "):
            begin = None
    return blocks


def documented(lines):
    """The text of comment lines, line by line, with labels, preconditions and examples marked."""
    out = []
    blocks = code_blocks(lines)
    for number, line in enumerate(lines):
        text = line.strip()
        if any(number in block for block in blocks):
            out.append("\\code{.cpp}" if any(number == begin for begin, _ in blocks) else "\\endcode")
            continue
        if any(begin < number < end for begin, end in blocks):
            out.append(line[3:].rstrip())
            continue
        label = LABEL.match(text)
        if label:
            name = label.group(1) or label.group(2)
            out.append(f"<p><b>{name}:</b> {escaped(text[label.end():])}")
        elif text.startswith("REQUIRES: "):
            out.append(f"\\pre {escaped(text.removeprefix('REQUIRES: '))}")
        else:
            out.append(escaped(text))
    return out


def code_of(line):
    """The line without its comment, and the place where that begins, or -1."""
    at, quote = 0, ""
    while at < len(line):
        letter = line[at]
        if quote:
            at += letter == "\\"
            quote = "" if letter == quote else quote
        elif letter == '"' or (letter == "'" and not (at and line[at - 1].isdigit())):
            quote = letter
        elif line.startswith("//", at):
            return line[:at], at
        at += 1
    return line, -1


class Statement:
    """A declaration, from its first line to the one that ends it."""

    def __init__(self, line):
        self.first = line
        self.text = ""

    def name(self):
        """What it declares: the word in front of the parameters, or the last one in front of a value."""
        text = re.sub(r"^\s*(?:template\s*<.*?>\s*(?=class|struct|enum|using|\[\[|[A-Za-z]))", "", self.text, flags=re.S)
        text = re.sub(r"\[\[.*?\]\]|__attribute__\(\(.*?\)\)\)?|\b(?:QZ|OS|SUPPORT|FSYS|MEDIA)_(?:API|LOCAL)\b", " ", text)
        operator = re.search(r"operator\s*([^\s(]+|\(\))", text)
        if operator:
            return "operator" + operator.group(1)
        using = re.search(r"\busing\s+(\w+)", text)
        if using:
            return using.group(1)
        words = re.findall(r"~?\w+", re.split(r"[({=;:]", text.replace("::", "__"))[0])
        return words[-1] if words else ""

    def special(self, owner):
        """Says what it is when it is a member that the compiler writes, or that is none; else nothing."""
        text = " ".join(self.text.split())
        if not owner or not re.search(rf"(?<!\w)~?{owner}\s*\(|operator=\s*\((?:const )?{owner}\b", text):
            return ""
        if "= delete" in text:
            return "Deleted: there is no such operation."
        if re.search(rf"~{owner}\s*\(", text):
            return "Ends the object."
        if re.search(rf"(?<![~\w]){owner}\s*\(\s*\)[^;]*= default", text):
            return "An object whose fields have the values that they begin with."
        if re.search(rf"\(\s*const {owner}(?:<\w+>)?&\s*\w*\s*\)", text):
            return "Copies the other."
        if re.search(rf"\(\s*{owner}(?:<\w+>)?&&\s*\w*\s*\)", text):
            return "Takes over what the other has."
        return ""


class Header:
    def __init__(self, text):
        self.lines = text.splitlines()
        self.out = list(self.lines)
        self.scopes = []      # of what is open: (kind, name)
        self.statement = None
        self.comment = None   # the last comment: its first and last line
        self.comment_names = set()
        self.shared = False   # it has described a declaration already
        self.groups = []      # names that shared a comment, for those who look at this filter

    def at_declarations(self):
        return all(kind != "body" for kind, _ in self.scopes)

    def owner(self):
        return self.scopes[-1][1] if self.scopes and self.scopes[-1][0] == "class" else ""

    def run(self):
        number = 0
        while number < len(self.lines):
            line = self.lines[number]
            code, at = code_of(line)
            stripped = line.strip()
            if stripped == "#pragma once":
                self.out[number] = "/** \\file */"
            elif not stripped:
                if self.statement is None:
                    self.comment = None
            elif stripped.startswith("//"):
                number = self.take_comment(number)
            elif not stripped.startswith("#"):
                self.take_code(number, code, at)
            number += 1
        return "\n".join(self.out) + "\n"

    def take_comment(self, number):
        """A comment with lines of its own; answers its last line."""
        place = code_of(self.lines[number - 1])[1] if number else -1
        if place > 0 and place == self.lines[number].index("//"):
            # The comment behind the line above goes on.
            if "///<" in self.out[number - 1]:
                self.out[number] = self.lines[number].replace("//", "///<", 1)
            return number
        last = number
        while last + 1 < len(self.lines) and self.lines[last + 1].strip().startswith("//"):
            last += 1
        if self.statement is None and self.at_declarations():
            following = self.lines[last + 1].strip() if last + 1 < len(self.lines) else ""
            if following.startswith("#define"):
                self.mark(number, last)
            elif not self.scopes and (not following or following.startswith(("namespace", "#"))):
                if not self.lines[number - 1].strip():
                    self.out[number - 1] = "/// \\file"
                    self.mark(number, last)
            elif following and following not in ("};", "}"):
                self.comment, self.comment_names, self.shared = (number, last), set(), False
        return last

    def mark(self, first, last):
        texts = [line.strip()[2:] for line in self.lines[first:last + 1]]
        for number, text in enumerate(documented(texts), first):
            indent = self.lines[number][:len(self.lines[number]) - len(self.lines[number].lstrip())]
            self.out[number] = f"{indent}/// {text}".rstrip()

    def comment_text(self):
        first, last = self.comment
        return [line.strip()[2:] for line in self.lines[first:last + 1]]

    def take_code(self, number, code, comment_at):
        """Follows the code of a line; a declaration that ends here gets its documentation."""
        begins = None
        declares = self.at_declarations()
        enumerates = bool(self.scopes) and self.scopes[-1][0] == "enum"
        for at, letter in enumerate(code):
            if letter.isspace() and self.statement is None:
                continue
            if self.statement is None and letter in "};":
                if letter == "}" and self.scopes:
                    self.scopes.pop()
                continue
            if self.statement is None:
                if re.match(r"(?:public|private|protected)\s*:", code[at:]):
                    break
                self.statement = Statement(number)
                begins = begins if begins is not None else self.statement
            statement = self.statement
            if letter == "{" and self.opens_scope(statement):
                if self.at_declarations() and begins_here(statement):
                    self.describe(statement, number, None)
                self.scopes.append(self.opens_scope(statement))
                self.statement = None
                continue
            statement.text += letter
            if letter == "{":
                self.scopes.append(("body", ""))
            elif letter == "}" and self.scopes and self.scopes[-1][0] == "body":
                self.scopes.pop()
                if self.at_declarations() and self.ends_function(statement, code[at + 1:]):
                    self.describe(statement, number, comment_at if not code[at + 1:].strip() else -1)
                    self.statement = None
            elif letter == "}" and enumerates:
                self.describe(statement, number, -1)
                self.scopes.pop()
                self.statement = None
                enumerates = False
            elif self.at_declarations() and (letter == ";" or (letter == "," and enumerates and
                                                                 not unbalanced(statement.text))):
                self.describe(statement, number, comment_at if not code[at + 1:].strip() else -1)
                self.statement = None
        if self.statement is not None:
            self.statement.text += "\n"
            # The last value of an enumeration ends without a comma.
            if enumerates and self.at_declarations() and re.match(r"\s*};?", self.next_code(number)):
                self.describe(self.statement, number, comment_at)
                self.statement = None

    def next_code(self, number):
        for line in self.lines[number + 1:]:
            code, _ = code_of(line)
            if code.strip():
                return code
        return ""

    @staticmethod
    def opens_scope(statement):
        found = OPENS.match(statement.text)
        if not found or unbalanced(statement.text):
            return None
        kind = found.group(1)
        if kind.startswith(("namespace", "extern")):
            return "namespace", ""
        if "=" in re.sub(r"<.*?>", "", statement.text) or (kind != "enum" and re.search(r"\)\s*(const|noexcept)?\s*$", statement.text)):
            return None
        if kind == "enum":
            return "enum", ""
        head = re.split(r"(?<!:):(?!:)", statement.text[found.end(1):])[0]
        names = [word for word in re.findall(r"\w+", head) if not re.fullmatch(r"\w+_(API|LOCAL)|final", word)]
        return "class", names[0] if names else ""

    @staticmethod
    def ends_function(statement, rest):
        """A body that closes ends a function; braces of a value are followed by ';' or more of it."""
        return "(" in statement.text.split("{")[0] and not re.match(r"\s*[;,(){]", rest)

    def describe(self, statement, last, comment_at):
        """Gives the declaration that ends in line last its documentation."""
        if self.is_mention(statement):
            return
        first = statement.first
        if comment_at is not None and comment_at >= 0:
            self.take_trailing(last, comment_at)
            if self.comment and self.comment[1] == first - 1 and not self.shared:
                self.shared = True
                self.mark(*self.comment)
            return
        name = statement.name()
        if self.comment and not self.shared:
            self.shared = True
            self.comment_names = {name}
            self.mark(*self.comment)
            return
        if self.comment and (name in self.comment_names or re.match(r"\s*(Each|Both)\b", self.comment_text()[0])):
            self.groups.append((sorted(self.comment_names)[0], name, self.comment_text()[0]))
            self.insert(first, " ".join(documented(self.comment_text())))
            return
        self.comment = None
        text = statement.special(self.owner())
        if text:
            self.insert(first, text)

    @staticmethod
    def is_mention(statement):
        text = " ".join(statement.text.split())
        return bool(re.fullmatch(r"(friend )?(class|struct|enum class|enum) [\w: ]+;", text) or
                    re.match(r"(static_assert|friend (class|struct)|template <class \w+> friend class)\b", text))

    def insert(self, number, text):
        line = self.out[number]
        indent = len(line) - len(line.lstrip())
        text = text.replace("\\pre ", "<p>Requires: ")
        self.out[number] = f"{line[:indent]}/** {text} */ {line[indent:]}"

    def take_trailing(self, number, at):
        """The comment behind the code of a line goes on in the lines below that hold nothing else, at the same place."""
        line = self.out[number]
        at += len(line) - len(self.lines[number])
        self.out[number] = f"{line[:at]}///< {escaped(line[at + 2:].strip())}"


def begins_here(statement):
    return bool(statement.text.strip()) and not statement.text.strip().startswith(("namespace", "extern"))


def unbalanced(text):
    return text.count("(") != text.count(")")


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: doc_comments.py HEADER")
    with open(sys.argv[1], encoding="utf-8") as file:
        sys.stdout.write(Header(file.read()).run())


if __name__ == "__main__":
    main()
