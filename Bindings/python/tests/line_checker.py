"""Holds lines against KivSession/protocol.json."""

import json
from pathlib import Path
from typing import Any, Callable, Dict, Iterator, List, Tuple

PROTOCOL = Path(__file__).resolve().parents[3] / "KivSession" / "protocol.json"

BASIC: Dict[str, Callable[[Any], bool]] = {
    "string": lambda value: isinstance(value, str),
    "integer": lambda value: isinstance(value, int) and not isinstance(value, bool),
    "number": lambda value: isinstance(value, (int, float)) and not isinstance(value, bool),
    "boolean": lambda value: isinstance(value, bool),
    "null": lambda value: value is None,
    "object": lambda value: isinstance(value, dict),
}


class LineChecker:
    def __init__(self) -> None:
        self.protocol: Dict[str, Any] = json.loads(PROTOCOL.read_text(encoding="utf-8"))
        self._types = {kind["name"]: kind for kind in self.protocol["types"]}
        self._calls = {call["name"]: call for call in self.protocol["calls"]}
        self._events = {event["name"]: event for event in self.protocol["events"]}

    def problems(self, line: Any) -> List[str]:
        """What is wrong with a line that a session sent; empty if nothing is."""
        if not isinstance(line, dict):
            return ["the line is no object"]
        kind = next(iter(line), "")
        if kind not in ("result", "event", "error"):
            return [f"the line is to be a result, an event or an error, and begins with {kind!r}"]
        return list(self._line_problems(kind, line))

    def call_problems(self, call: Dict[str, Any]) -> List[str]:
        """What is wrong with a call."""
        known = self._calls.get(call.get("call", ""))
        if known is None:
            return ["there is no such call"]
        members = [self._name_member("call"), *known["parameters"], self._tag(optional=True)]
        return list(self._member_problems("the call", call, members))

    def type_problems(self, name: str, value: Any) -> List[str]:
        return list(self._type_problems(name, value, name))

    def _line_problems(self, kind: str, line: Dict[str, Any]) -> Iterator[str]:
        name = line[kind]
        if kind == "error":
            members = [*self.protocol["error"]["members"], self._tag(optional=True)]
        elif kind == "result" and name in self._calls:
            known = self._calls[name]
            # Without a result of its own a call is answered only if it has a tag.
            members = [self._name_member(kind), *known.get("result", []),
                       self._tag(optional="result" in known)]
        elif kind == "event" and name in self._events:
            members = [self._name_member(kind), *self._events[name]["members"]]
        else:
            yield f"there is no {kind} {name!r}"
            return
        yield from self._member_problems(name, line, members)
        if "tag" in line and list(line)[-1] != "tag":
            yield "the tag is not the last member"

    @staticmethod
    def _name_member(kind: str) -> Dict[str, Any]:
        return {"name": kind, "type": "string"}

    @staticmethod
    def _tag(optional: bool) -> Dict[str, Any]:
        return {"name": "tag", "type": "Tag", "optional": optional}

    def _member_problems(
        self, where: str, value: Dict[str, Any], members: List[Dict[str, Any]]
    ) -> Iterator[str]:
        known = {member["name"]: member for member in members}
        for name in value:
            if name not in known:
                yield f"{where}: {name!r} is not described"
        for name, member in known.items():
            if name in value:
                yield from self._type_problems(member["type"], value[name], f"{where}.{name}")
            elif not member.get("optional"):
                yield f"{where}: {name!r} is missing"

    def _members_of(self, kind: Dict[str, Any]) -> List[Dict[str, Any]]:
        if "partOf" in kind:
            return [dict(m, optional=True) for m in self._members_of(self._types[kind["partOf"]])]
        base = self._members_of(self._types[kind["extends"]]) if "extends" in kind else []
        members: List[Dict[str, Any]] = [*base, *kind["members"]]
        return members

    def _type_problems(self, text: str, value: Any, where: str) -> Iterator[str]:
        problems: List[Tuple[int, List[str]]] = []
        for part in text.split(" | "):
            found = list(self._part_problems(part, value, where))
            if not found:
                return
            problems.append((len(found), found))
        # Those of the alternative that fits best.
        yield from min(problems)[1]

    def _part_problems(self, part: str, value: Any, where: str) -> Iterator[str]:
        if part.endswith("[]"):
            if not isinstance(value, list):
                yield f"{where} is no array"
                return
            for index, element in enumerate(value):
                yield from self._type_problems(part[:-2], element, f"{where}[{index}]")
        elif part.startswith('"'):
            if value != part[1:-1]:
                yield f"{where} is {value!r}, not {part}"
        elif part in BASIC:
            if not BASIC[part](value):
                yield f"{where} is {value!r}, no {part}"
        else:
            kind = self._types[part]
            if "union" in kind:
                yield from self._type_problems(kind["union"], value, where)
            elif not isinstance(value, dict):
                yield f"{where} is {value!r}, no {part}"
            else:
                yield from self._member_problems(where, value, self._members_of(kind))
