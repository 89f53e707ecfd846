"""What the public C++ headers declare: classes with their public members, functions and enumerations."""

from __future__ import annotations

import re
from dataclasses import dataclass, field
from pathlib import Path

#: The folder of the public headers in the tree that the tests stand in.
HEADERS = Path(__file__).resolve().parents[2] / "include" / "Torvo"

_CLASS = re.compile(r"^(?:template\s*<.*>\s*)?(class|struct)\s+(?:TORVO_API\s+)?(\w+)\s*(?:final\s*)?(?::[^:].*)?$", re.S)
_ENUM = re.compile(r"^enum\s+class\s+(\w+)")
_CALLED = re.compile(r"(operator\b[^(]*|~?\w+)\s*\(")


@dataclass
class Scope:
    """What a brace opens."""

    kind: str  # namespace, class, enum or body
    name: str = ""
    is_public: bool = True


@dataclass
class Declared:
    """Names as C++ spells them, each with the header that it stands in."""

    classes: dict[str, str] = field(default_factory=dict)
    members: dict[str, str] = field(default_factory=dict)  # "Class.member"
    functions: dict[str, str] = field(default_factory=dict)
    values: dict[str, str] = field(default_factory=dict)  # "Enumeration.value"


def declared(headers: Path = HEADERS) -> Declared:
    """All that a user of the headers can name."""
    found = Declared()
    for path in sorted(headers.glob("*.hpp")):
        _Reader(path.name, found).read(path.read_text())
    return found


def _without_template(head: str) -> str:
    """The declaration behind `template <...>`."""
    while head.startswith("template"):
        depth = 0
        for i, letter in enumerate(head):
            depth += (letter == "<") - (letter == ">")
            if letter == ">" and depth == 0:
                break
        head = head[i + 1 :].strip()
    return head


class _Reader:
    def __init__(self, header: str, found: Declared) -> None:
        self.header = header
        self.found = found
        self.scopes: list[Scope] = []

    def read(self, text: str) -> None:
        text = re.sub(r"//[^\n]*|/\*.*?\*/", "", text, flags=re.S)
        text = re.sub(r"^\s*#[^\n]*", "", text, flags=re.M)
        head = ""
        depth = 0
        for letter in text:
            depth += (letter == "(") - (letter == ")")
            if depth == 0 and letter == "{":
                self._open(head.strip())
                head = ""
            elif depth == 0 and letter in ";}":
                self._end(head.strip(), letter)
                head = ""
            else:
                head += letter
            if depth == 0 and letter == ":" and head.strip() in ("public:", "private:", "protected:"):
                self.scopes[-1].is_public = head.strip() == "public:"
                head = ""

    def _path(self) -> str:
        """The names around, without that of the library."""
        return "".join(f"{scope.name}." for scope in self.scopes if scope.name not in ("", "Torvo"))

    def _is_visible(self) -> bool:
        return all(scope.is_public and scope.kind in ("namespace", "class") for scope in self.scopes)

    def _open(self, head: str) -> None:
        visible = self._is_visible()
        space = re.match(r"^namespace\s*([\w:]*)$", head)
        a_class, an_enum = _CLASS.match(_without_template(head)), _ENUM.match(head)
        if space:
            name = space.group(1).removeprefix("Torvo::").removeprefix("Torvo")
            self.scopes.append(Scope("namespace", name, name != "detail"))
        elif an_enum:
            if visible:
                self.found.classes[self._path() + an_enum.group(1)] = self.header
            self.scopes.append(Scope("enum", an_enum.group(1), visible))
        elif a_class:
            if visible:
                self.found.classes[self._path() + a_class.group(2)] = self.header
            self.scopes.append(Scope("class", a_class.group(2), visible and a_class.group(1) == "struct"))
        else:
            self._declare(head)
            self.scopes.append(Scope("body"))

    def _end(self, head: str, letter: str) -> None:
        if self.scopes and self.scopes[-1].kind == "enum":
            if head and self.scopes[-1].is_public:
                name = self.scopes[-1].name
                path = self._path().removesuffix(f"{name}.")
                for value in head.split(","):
                    if value.strip():
                        self.found.values[f"{path}{name}.{value.split('=')[0].strip()}"] = self.header
        else:
            self._declare(head)
        if letter == "}":
            self.scopes.pop()

    def _declare(self, head: str) -> None:
        head = _without_template(head)
        if not self._is_visible() or not self.scopes or not head:
            return
        if re.match(r"^(using|friend|extern|typedef|class|struct|concept)\b", head) or head.endswith("= delete"):
            return
        called = _CALLED.search(head)
        in_class = self.scopes[-1].kind == "class"
        if called:
            name = called.group(1).strip()
            if name.startswith(("operator", "~")) or name == self.scopes[-1].name:
                return
        elif in_class and re.match(r"^[\w:<>, ]+\s+\w+\s*(=.*)?$", head, re.S):
            name = re.sub(r"\s*=.*$", "", head, flags=re.S).split()[-1]
        else:
            return
        if in_class:
            self.found.members[self._path() + name] = self.header
        else:
            self.found.functions[self._path() + name] = self.header
