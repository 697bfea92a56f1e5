"""KivSession/protocol.json, which describes the lines, held against itself and the library."""

import copy
import json
import re
import unittest
from pathlib import Path
from typing import Any, Dict, Iterator, Set

from kivresource import Session
from support import CacheTestCase, banner, checker, config, plain

SOURCES = Path(__file__).resolve().parents[3] / "KivSession"


class Examples(unittest.TestCase):
    def lines(self) -> Iterator[Dict[str, Any]]:
        protocol = checker.protocol
        for step in protocol["conversation"]:
            if "received" in step:
                yield step["received"]
        for event in protocol["events"]:
            yield event["example"]
        yield protocol["error"]["example"]
        for call in protocol["calls"]:
            if "result" in call:
                yield call["exampleResult"]

    def test_are_as_described(self) -> None:
        for line in self.lines():
            self.assertEqual(checker.problems(line), [], line)
        for call in checker.protocol["calls"]:
            self.assertEqual(call["example"]["call"], call["name"])
            self.assertEqual(checker.call_problems(call["example"]), [], call["name"])
        for step in checker.protocol["conversation"]:
            if "sent" in step:
                self.assertEqual(checker.call_problems(step["sent"]), [], step)

    def test_the_checker_finds_whatever_is_wrong_with_them(self) -> None:
        for line in self.lines():
            for member in line:
                with self.subTest(line=line, missing=member):
                    shorter = {name: value for name, value in line.items() if name != member}
                    # Only the tag may be missing, of a line with more than that and its name.
                    self.assertEqual(checker.problems(shorter) == [],
                                     member == "tag" and list(line) != ["result", "tag"])
                with self.subTest(line=line, changed=member):
                    self.assertNotEqual(checker.problems({**line, member: {1: 2}.values()}), [])
            with self.subTest(line=line, added=True):
                self.assertNotEqual(checker.problems({**line, "added": 1}), [])

    def test_the_checker_looks_into_resources(self) -> None:
        event = checker.protocol["events"][1]["example"]
        for path, value in (
            (("resource", "class"), "KivResourceVideo"),
            (("resource", "priority"), 1.5),
            (("resource", "priority"), True),
            (("resource", "missingFilesLinks"), [1]),
            (("resource", "missingFilesLinks"), {}),
            (("resource", "html"), 7),
            (("error", "code"), "102"),
            (("error", "more"), 1),
        ):
            changed: Any = copy.deepcopy(event)
            changed[path[0]][path[1]] = value
            with self.subTest(path=path):
                self.assertNotEqual(checker.problems(changed), [])

    def test_the_checker_wants_the_tag_at_the_end(self) -> None:
        self.assertEqual(checker.problems({"result": "space", "cacheUsed": 1,
                                           "fileSystemAvailable": 1, "fileSystemUsed": 1,
                                           "tag": 1}), [])
        self.assertNotEqual(checker.problems({"result": "space", "tag": 1, "cacheUsed": 1,
                                              "fileSystemAvailable": 1, "fileSystemUsed": 1}), [])
        self.assertNotEqual(checker.problems({"result": "stopLoading"}), [])


class ThePage(unittest.TestCase):
    def test_has_what_its_links_lead_to(self) -> None:
        text = (SOURCES.parent / "Docs" / "SESSION.md").read_text(encoding="utf-8")
        anchors: Set[str] = set()
        for heading in re.findall(r"^#+ (.*)$", text, re.MULTILINE):
            anchor = re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")
            count = sum(other == anchor or other.startswith(f"{anchor}-") for other in anchors)
            anchors.add(f"{anchor}-{count}" if anchor in anchors else anchor)
        links = re.findall(r"\]\(#([^)]+)\)", text)
        self.assertGreater(len(links), 30)
        self.assertEqual([link for link in links if link not in anchors], [])
        self.assertRegex(text, r"\[Settings\]\(#settings-1\)")


class TheLibrary(CacheTestCase):
    def test_has_the_calls_that_are_described_and_no_others(self) -> None:
        source = (SOURCES / "SessionCall.cpp").read_text(encoding="utf-8")
        readers = source[source.index("readers{{"):source.index("}};", source.index("readers{{"))]
        self.assertEqual(set(re.findall(r'\{"(\w+)", ', readers)),
                         {call["name"] for call in checker.protocol["calls"]})

    def test_is_opened_with_the_members_that_are_described_and_no_others(self) -> None:
        source = (SOURCES / "OpenSettings.cpp").read_text(encoding="utf-8")
        [described] = [kind for kind in checker.protocol["types"] if kind["name"] == "OpenSettings"]
        self.assertEqual(set(re.findall(r'name == "(\w+)"', source)),
                         {member["name"] for member in described["members"]})

    def test_answers_every_call_as_described(self) -> None:
        server = self.serve()
        session = self.open_session(main=server)
        answered = set()
        for call in checker.protocol["calls"]:
            example = dict(call["example"])
            if isinstance(example.get("config"), str):
                example["config"] = config(banner("b", "no/such.png"), plain("p"))
            if example["call"] == "setDomains":
                example["main"] = None
            if example["call"] == "follow":
                example["url"] = f"{server}/config.json"
            if example["call"] == "takeLease":
                example["id"] = "p"  # endLease, which comes next, ends this lease
            if example["call"] in ("sendRequest", "refuseRequest"):
                example["request"] = self.announced(session)
            answer = self.answer(session, example)
            if call["name"] == "waitForFinish":
                self.assertIn(next(iter(answer)), ("result", "error"))
                answered.add(call["name"])
            else:
                answered.add(answer.get("result"))
            self.answer(session, {"call": "stopLoading"})
        self.assertEqual(answered, {call["name"] for call in checker.protocol["calls"]})

    def announced(self, session: Session) -> int:
        """The number of a request that waits."""
        self.answer(session, {"call": "loadResourcesForConfig",
                              "config": config(banner("b", "no/such.png"))})
        while True:
            line = self.receive(session)
            if line.get("event") == "request":
                return int(line["request"])

    def test_wants_every_parameter_that_is_described(self) -> None:
        session = self.open_session()
        for call in checker.protocol["calls"]:
            for parameter in call["parameters"]:
                name = parameter["name"]
                for changed in (False, True):
                    made = {k: v for k, v in call["example"].items() if k != "tag"}
                    made.setdefault("config", {}) if name == "config" else None
                    if changed:
                        made[name] = [7]
                    elif parameter.get("optional"):
                        continue
                    else:
                        del made[name]
                    with self.subTest(call=made):
                        self.assertNotEqual(checker.call_problems(made), [])
                        session.send({**made, "tag": "t"})
                        self.assertIn(f'"{name}"', self.receive(session)["error"])

    def test_has_the_settings_that_are_described_with_their_ranges_and_defaults(self) -> None:
        session = self.open_session()
        described = {member["name"]: member
                     for kind in checker.protocol["types"] if kind["name"] == "Settings"
                     for member in kind["members"]}
        settings = self.answer(session, {"call": "settings"})["settings"]
        self.assertEqual(list(settings), list(described))
        for name, member in described.items():
            with self.subTest(setting=name):
                if name != "spoolDirectory":
                    self.assertEqual(settings[name], json.loads(member["default"]))
                session.send({"call": "setSettings", "settings": {name: []}})
                said = self.receive(session)["error"]
                if member["type"] == "integer":
                    expected = f"a whole number from {member['minimum']} to {member['maximum']}"
                else:
                    expected = {"boolean": "true or false", "string": "a string",
                                "string | null": "a string or null"}[member["type"]]
                self.assertTrue(said.endswith(f"is to be {expected}"), said)


if __name__ == "__main__":
    unittest.main()
