"""The thin class over the C functions."""

import gc
import os
import queue
import select
import signal
import subprocess
import sys
import threading
import unittest
import warnings
import weakref
from typing import Any, Dict, List
from unittest import mock

import kivresource
from kivresource import CacheBusyError, CacheClosedError, CacheError, Session, _library
from support import PATIENCE, CacheTestCase, banner, config, ids, log, plain

LARGEST = 18446744073709551615
FINISH = {"event": "didFinishLoading"}


class Opening(CacheTestCase):
    def test_creates_its_root_and_is_closed_by_with(self) -> None:
        with Session(self.root) as session:
            self.assertFalse(session.closed)
            self.assertEqual(
                self.answer(session, {"call": "allLoadedResources"}),
                {"result": "allLoadedResources", "resources": [], "tag": "answer"},
            )
        self.assertTrue(session.closed)

    def test_takes_a_relative_root_and_a_path_object(self) -> None:
        before = os.getcwd()
        os.chdir(self.directory)
        self.addCleanup(os.chdir, before)
        with Session("relative") as session:
            os.chdir("/")
            session.send({"call": "loadResourcesForConfig", "config": config(plain("1"))})
            self.assertEqual(ids(self.answer(session, {"call": "allLoadedResources"})["resources"]),
                             ["1"])
        self.assertTrue((self.directory / "relative" / "KivResource").is_dir())

    def test_a_second_one_is_refused_until_the_first_is_closed(self) -> None:
        session = self.open_session()
        with self.assertRaisesRegex(CacheBusyError, "has an open session"):
            Session(self.directory / "other")
        session.close()
        Session(self.directory / "other").close()

    def test_a_setting_that_is_not_valid_is_an_error_that_names_it(self) -> None:
        for settings, text in (
            ({"threads": 0}, "threads"),
            ({"threads": "2"}, "threads"),
            ({"thread": 2}, "thread"),
            ({"proxy": "a\0b"}, "proxy"),
            ({"bandwidth": 2**64}, "bandwidth"),
            ({"http2": 1}, "http2"),
        ):
            with self.subTest(settings=settings), self.assertRaisesRegex(CacheError, text) as raised:
                Session(self.root, settings=settings)  # type: ignore[arg-type]
            self.assertIs(type(raised.exception), CacheError)
        self.assertFalse(self.root.exists())

    def test_a_root_that_cannot_be_text_is_an_error(self) -> None:
        with self.assertRaises(ValueError):
            Session(b"/\xff".decode("utf-8", "surrogateescape"))
        with self.assertRaises(CacheError):
            Session(str(self.root) + "\0")

    def test_has_the_version_of_the_library(self) -> None:
        self.assertRegex(kivresource.version(), r"^\d+\.\d+\.\d+$")


    def test_a_configuration_names_other_files_only_where_it_may(self) -> None:
        elsewhere = self.directory / "elsewhere"
        elsewhere.mkdir()
        (elsewhere / "own.png").write_bytes(b"own")
        item = config(banner("1", str(elsewhere / "own.png")))
        arguments: List[Dict[str, Any]] = [
            {}, {"lookup_roots": []}, {"lookup_roots": [self.directory / "other"]},
            {"lookup_roots": [elsewhere]}, {"lookup_roots": None},
        ]
        found = []
        for number, roots in enumerate(arguments):
            with Session(self.directory / str(number), **roots) as session:
                session.send({"call": "loadResourcesForConfig", "config": item})
                found.append(self.receive(session)["event"] == "didLoadResource")
        self.assertEqual(found, [False, False, False, True, True])

    def test_takes_the_packaged_resources_from_the_path(self) -> None:
        bundle = self.directory / "InnerAdResources.bundle"
        bundle.mkdir()
        (bundle / "own.png").write_bytes(b"own")
        with Session(self.root, resources=self.directory) as session:
            session.send({"call": "loadResourcesForConfig",
                          "config": config(banner("1", "x/own.png"))})
            self.assertEqual(self.receive(session)["resource"]["image"], str(bundle / "own.png"))

    def test_asks_the_mirror(self) -> None:
        with Session(self.root, reserve=self.serve(), main=self.serve(self.directory)) as session:
            link = "banners/harbour-ferry.png"
            session.send({"call": "loadResourcesForConfig", "config": config(banner("1", link))})
            self.assertEqual(self.receive(session)["event"], "didLoadResource")


class Sending(CacheTestCase):
    def test_refuses_what_cannot_be_sent_and_goes_on(self) -> None:
        session = self.open_session()
        values: List[Any] = [
            "\0",
            '{"call":"allLoadedResources"}\0',
            "\ud800",
            {"call": "\udfff"},
            {"call": "sleep", "ms": float("nan")},
            {"call": "sleep", "ms": float("inf")},
        ]
        for call in values:
            with self.subTest(call=call), self.assertRaises(ValueError):
                session.send(call)
        values = [{"call": object()}, {"call": {1, 2}}, {("a",): 1}, {b"call": "x"}, b"{}"]
        for call in values:
            with self.subTest(call=call), self.assertRaises(TypeError):
                session.send(call)
        self.assertEqual(self.answer(session, {"call": "space"})["result"], "space")

    def test_answers_a_line_that_is_no_call_with_an_error(self) -> None:
        session = self.open_session()
        for text in ("", " ", "nonsense", "{", "[]", "7", "null", "{}", '{"call":7}',
                     '{"call":"load"}', '{"call":"allLoadedResources"} {}', "\n", '{"call":"\n"}',
                     '{"call":"space","tag":null}', '{"call":"space","tag":[]}',
                     '{"call":"space","tag":true}', "[" * 100_000):
            with self.subTest(text=text[:40]):
                session.send(text)
                self.assertEqual(list(self.receive(session)), ["error"])

    def test_an_error_has_the_tag_of_its_call(self) -> None:
        session = self.open_session()
        calls: List[Dict[str, Any]] = [
            {"call": "load"}, {"call": "sleep"}, {}, {"call": 7},
            {"call": "loadResourcesForConfig", "config": "/no/such/file"},
            {"call": "waitForFinish", "timeout_ms": 0},
            {"call": "setSettings", "settings": {"threads": 0}},
        ]
        for call in calls:
            with self.subTest(call=call):
                session.send({**call, "tag": "t"})
                self.assertEqual(list(self.receive(session).items())[1:], [("tag", "t")])

    def test_a_tag_comes_back_as_it_was(self) -> None:
        session = self.open_session()
        tags: List[Any] = ["", "ä€😀\n\"\\\0", "x" * 100_000, 0, -1, 1.5, LARGEST, -(2**63),
                           2**53 + 1]
        for tag in tags:
            session.send({"call": "stopLoading", "tag": tag})
        answers: List[Any] = []
        while len(answers) < len(tags):
            line = self.receive(session)
            if line != FINISH:
                self.assertEqual(list(line), ["result", "tag"])
                answers.append(line["tag"])
        self.assertEqual(answers, tags)
        self.assertEqual([type(tag) for tag in answers], [type(tag) for tag in tags])

    def test_text_of_every_kind_survives_the_round_trip(self) -> None:
        session = self.open_session()
        name = "ä€😀 \u2028\x7f\x01\0\t\"\\/" + "é" * 10_000
        item = plain("\u202eid", name=name, own={"": None, "__proto__": 1, "ключ": [1.5, True]})
        session.send({"call": "loadResourcesForConfig", "config": config(item)})
        resource = self.receive(session)["resource"]
        self.assertEqual(resource["name"], name)
        self.assertEqual(resource["resourceID"], "\u202eid")
        self.assertEqual(resource["resourceDictionary"], item)

    def test_large_numbers_are_exact(self) -> None:
        session = self.open_session()
        item = plain("1", priority=LARGEST, updated=2**53 + 1, low=-(2**63))
        session.send({"call": "loadResourcesForConfig", "config": config(item)})
        resource = self.receive(session)["resource"]
        self.assertEqual(resource["priority"], LARGEST)
        self.assertEqual(resource["updated"], 2**53 + 1)
        self.assertEqual(resource["resourceDictionary"]["low"], -(2**63))

    def test_a_number_beyond_all_integers_is_answered(self) -> None:
        session = self.open_session()
        session.send({"call": "setSettings", "settings": {"threads": 10**400}})
        self.assertEqual(list(self.receive(session)), ["error"])


class Receiving(CacheTestCase):
    def test_returns_none_when_nothing_came_in_time(self) -> None:
        session = self.open_session()
        for timeout in (0, 0.0, -1, 0.01, float("-inf")):
            self.assertIsNone(session.receive(timeout))
        with self.assertRaises(ValueError):
            session.receive(float("nan"))

    def test_a_very_long_timeout_is_one(self) -> None:
        session = self.open_session()
        for timeout in (1e9, 1e300, float("inf")):
            session.send({"call": "space"})
            self.assertIsNotNone(session.receive(timeout))

    def test_ten_thousand_lines_wait_until_they_are_received_in_order(self) -> None:
        session = self.open_session()
        for tag in range(10_000):
            session.send({"call": "allLoadedResources", "tag": tag})
        tags = [self.receive(session)["tag"] for _ in range(10_000)]
        self.assertEqual(tags, list(range(10_000)))
        self.assertIsNone(session.receive(0))

    def test_a_line_that_came_when_an_exception_did_is_not_lost(self) -> None:
        session = self.open_session()
        library = session._library

        def receive_and_be_interrupted(*arguments: Any) -> None:
            self.assertEqual(library.kivsession_receive(*arguments), 0)
            raise KeyboardInterrupt

        session.send({"call": "space", "tag": 1})
        session.send({"call": "space", "tag": 2})
        with mock.patch.object(session, "_library",
                               mock.Mock(kivsession_receive=receive_and_be_interrupted)):
            with self.assertRaises(KeyboardInterrupt):
                session.receive()
        self.assertEqual([self.receive(session)["tag"] for _ in range(2)], [1, 2])
        self.assertIsNone(session.receive(0))

    def test_every_text_of_the_library_is_freed_once(self) -> None:
        freed: List[int] = []
        library = _library.library()
        with mock.patch.object(_library, "library") as patched:
            patched.return_value = mock.Mock(wraps=library)
            patched.return_value.kivsession_free.side_effect = freed.append
            with Session(self.root) as session:
                for _ in range(10):
                    self.answer(session, {"call": "space"})
            with self.assertRaises(CacheError):
                Session(self.root, settings={"threads": 0})
        self.assertEqual(len(freed), 11)
        self.assertEqual(len(set(freed)), 11)  # since none was really freed
        for address in freed:
            library.kivsession_free(address)

    def test_iterates_until_it_is_closed(self) -> None:
        session = self.open_session()
        session.send({"call": "loadResourcesForConfig", "config": config(plain("1"))})
        events = []
        for line in session:
            events.append(line["event"])  # type: ignore[typeddict-item]
            if line == FINISH:
                session.close()
        self.assertEqual(events, ["didLoadResource", "didFinishLoading"])

    def test_each_line_goes_to_one_of_the_threads(self) -> None:
        session = self.open_session()
        received: "queue.Queue[Any]" = queue.Queue()

        def receive() -> None:
            for line in session:
                if line != FINISH:  # from closing
                    received.put(dict(line)["tag"])

        def send(first: int) -> None:
            for tag in range(first, first + 250):
                session.send({"call": "state", "tag": tag})

        threads = [threading.Thread(target=receive) for _ in range(8)]
        senders = [threading.Thread(target=send, args=(first,)) for first in range(0, 1000, 250)]
        for thread in [*threads, *senders]:
            thread.start()
        tags = [received.get(timeout=PATIENCE) for _ in range(1000)]
        session.close()
        for thread in [*threads, *senders]:
            thread.join(PATIENCE)
        self.assertEqual(sorted(tags), list(range(1000)))
        self.assertTrue(received.empty())

    def test_the_descriptor_is_readable_while_lines_wait(self) -> None:
        session = self.open_session()
        poll = select.poll()
        poll.register(session.descriptor(), select.POLLIN)
        self.assertEqual(poll.poll(0), [])
        session.send({"call": "space"})
        session.send({"call": "space"})
        for _ in range(2):
            self.assertEqual(len(poll.poll(PATIENCE * 1000)), 1)
            self.receive(session)
        self.assertEqual(poll.poll(0), [])


class Closing(CacheTestCase):
    def test_everything_fails_after_a_close_but_a_second_close(self) -> None:
        session = self.open_session()
        session.close()
        session.close()
        self.assertTrue(session.closed)
        for operation in (lambda: session.send("{}"), lambda: session.receive(0),
                          lambda: session.receive(), session.descriptor):
            with self.assertRaisesRegex(CacheClosedError, "is closed"):
                operation()
        self.assertEqual(list(session), [])

    def test_an_old_session_has_nothing_to_do_with_the_next(self) -> None:
        old = self.open_session()
        old.close()
        with Session(self.root) as session:
            old.close()
            with self.assertRaises(CacheClosedError):
                old.send("{}")
            self.assertEqual(self.answer(session, {"call": "space"})["result"], "space")

    def test_wakes_the_threads_that_wait(self) -> None:
        session = self.open_session()
        raised: List[BaseException] = []
        waiting = threading.Barrier(5)

        def receive() -> None:
            waiting.wait()
            try:
                while True:
                    session.receive()
            except CacheClosedError as error:
                raised.append(error)

        threads = [threading.Thread(target=receive) for _ in range(4)]
        for thread in threads:
            thread.start()
        waiting.wait()
        session.close()
        for thread in threads:
            thread.join(PATIENCE)
        self.assertEqual(len(raised), 4)

    def test_many_threads_may_close(self) -> None:
        session = self.open_session()
        threads = [threading.Thread(target=session.close) for _ in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(PATIENCE)
        self.open_session()

    def test_a_collected_session_is_closed_with_a_warning(self) -> None:
        session = Session(self.root)
        gone = weakref.ref(session)
        with self.assertWarnsRegex(ResourceWarning, "unclosed <kivresource"):
            del session
            gc.collect()
        self.assertIsNone(gone())
        self.open_session()

    def test_a_closed_session_is_collected_without_a_warning(self) -> None:
        session = Session(self.root)
        session.close()
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            del session
            gc.collect()
        with self.assertRaises(TypeError), warnings.catch_warnings():
            warnings.simplefilter("error")
            Session()  # type: ignore[call-arg]
        gc.collect()

    def test_opens_and_closes_many_times_without_leaking_descriptors(self) -> None:
        Session(self.root).close()
        before = len(os.listdir("/proc/self/fd"))
        for _ in range(30):
            with Session(self.root) as session:
                session.send({"call": "space"})
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)

    def test_what_is_complete_is_there_in_the_next_session(self) -> None:
        url = self.serve()
        link = "banners/harbour-ferry.png"
        with Session(self.root, main=url) as session:
            session.send({"call": "loadResourcesForConfig", "config": config(banner("f", link))})
            self.assertEqual(self.answer(session, {"call": "waitForFinish"}),
                             {"result": "waitForFinish", "tag": "answer"})
        with Session(self.root) as session:
            found = self.answer(session, {"call": "loadedResourcesWithID", "id": "f"})["resources"]
            self.assertEqual(found[0]["class"], "KivResourceStandard")
            self.assertTrue(os.path.exists(found[0]["image"]))


class Logging(CacheTestCase):
    def setUp(self) -> None:
        super().setUp()
        self.addCleanup(kivresource.set_log, log.append)

    def cause_a_line(self, session: Session) -> None:
        session.send({"call": "loadResourcesForConfig", "config": config({"engine": "ä"})})
        self.answer(session, {"call": "state"})

    def test_the_function_receives_the_lines_of_the_log(self) -> None:
        lines: List[str] = []
        kivresource.set_log(lines.append)
        self.cause_a_line(self.open_session())
        self.assertTrue(any("Create resource error" in line for line in lines), lines)

    def test_what_the_function_raises_is_reported_and_the_session_goes_on(self) -> None:
        reported: List[Any] = []
        self.addCleanup(setattr, sys, "unraisablehook", sys.unraisablehook)
        sys.unraisablehook = reported.append

        def fail(line: str) -> None:
            raise RuntimeError(line)

        kivresource.set_log(fail)
        self.cause_a_line(self.open_session())
        self.assertIsInstance(reported[0].exc_value, RuntimeError)

    def test_a_session_cannot_be_closed_in_the_function(self) -> None:
        session = self.open_session()
        errors: List[CacheError] = []

        def close(_: str) -> None:
            try:
                session.close()
            except CacheError as error:
                errors.append(error)

        kivresource.set_log(close)
        self.cause_a_line(session)
        self.assertRegex(str(errors[0]), "log function")
        self.assertFalse(session.closed)


class OtherProcesses(CacheTestCase):
    def run_python(self, program: str, *arguments: str) -> "subprocess.CompletedProcess[str]":
        return subprocess.run(
            [sys.executable, "-W", "error", "-c", program, str(self.root), *arguments],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=PATIENCE,
        )

    def assert_ends_well(self, program: str, output: str) -> None:
        run = self.run_python(program)
        self.assertEqual((run.returncode, run.stdout), (0, output), run.stderr)

    def test_an_open_session_does_not_keep_the_process_from_ending(self) -> None:
        self.assert_ends_well("import kivresource, sys\n"
                              "session = kivresource.Session(sys.argv[1])\n"
                              "session.send('{}')\n"
                              "kivresource.set_log(lambda line: None)\n"
                              "print('end')", "end\n")

    def test_a_session_is_closed_in_a_forked_child_and_open_in_the_parent(self) -> None:
        session = self.open_session()
        reader, writer = os.pipe()
        child = os.fork()
        if child == 0:
            said = b""
            try:
                said += b"closed " if session.closed else b"open "
                for operation in (lambda: session.send("{}"), lambda: session.receive(),
                                  session.descriptor):
                    try:
                        operation()
                        said += b"done "
                    except CacheClosedError:
                        said += b"refused "
                session.close()
                try:
                    Session(self.root)
                except CacheBusyError:
                    said += b"busy"
                os.write(writer, said)
            finally:
                os._exit(0)
        os.close(writer)
        with open(reader, "rb") as pipe:
            self.assertEqual(pipe.read(), b"closed refused refused refused busy")
        os.waitpid(child, 0)
        self.assertFalse(session.closed)
        self.assertEqual(self.answer(session, {"call": "space"})["result"], "space")

    def test_a_forked_child_collects_the_session_and_ends_as_usual(self) -> None:
        self.assert_ends_well("import gc, kivresource, os, sys\n"
                              "session = kivresource.Session(sys.argv[1])\n"
                              "child = os.fork()\n"
                              "if child == 0:\n"
                              "  del session\n"
                              "  gc.collect()\n"
                              "  sys.exit(3)\n"
                              "status = os.waitpid(child, 0)[1]\n"
                              "session.send({'call': 'space'})\n"
                              "print(os.WEXITSTATUS(status), session.receive()['result'])\n"
                              "session.close()", "3 space\n")

    def test_ctrl_c_interrupts_a_wait_and_no_line_is_lost(self) -> None:
        session = self.open_session()

        def interrupt_and_cause_a_line() -> None:
            os.kill(os.getpid(), signal.SIGINT)
            session.send({"call": "space"})

        for _ in range(20):
            thread = threading.Thread(target=interrupt_and_cause_a_line)
            with self.assertRaises(KeyboardInterrupt):
                thread.start()
                session.receive(PATIENCE)
                session.receive(PATIENCE)
            thread.join()
            self.assertEqual(self.receive(session)["result"], "space")

    def test_a_wait_that_nothing_ends_is_interrupted(self) -> None:
        program = ("import kivresource, sys\n"
                   "session = kivresource.Session(sys.argv[1])\n"
                   "try:\n"
                   "  print('waiting', flush=True)\n"
                   "  session.receive()\n"
                   "except KeyboardInterrupt:\n"
                   "  print('interrupted')\n"
                   "session.close()")
        with subprocess.Popen([sys.executable, "-c", program, str(self.root)], text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as process:
            assert process.stdout is not None
            process.stdout.readline()
            process.send_signal(signal.SIGINT)
            self.assertEqual(process.communicate(timeout=PATIENCE)[0], "interrupted\n")
            self.assertEqual(process.returncode, 0)

    def test_a_library_that_is_missing_is_named(self) -> None:
        os.environ["KIVRESOURCE_LIBRARY"], before = "/no/library", os.environ["KIVRESOURCE_LIBRARY"]
        self.addCleanup(os.environ.__setitem__, "KIVRESOURCE_LIBRARY", before)
        run = self.run_python("import kivresource, kivresource._library as l, sys\n"
                              "l.FILE_NAME = 'none'\n"
                              "try: kivresource.Session(sys.argv[1])\n"
                              "except kivresource.CacheError as error: print(error)")
        self.assertIn("/no/library", run.stdout, run.stderr)
        self.assertIn("KIVRESOURCE_LIBRARY", run.stdout)

    def test_a_library_without_the_functions_is_refused(self) -> None:
        os.environ["KIVRESOURCE_LIBRARY"], before = "libc.so.6", os.environ["KIVRESOURCE_LIBRARY"]
        self.addCleanup(os.environ.__setitem__, "KIVRESOURCE_LIBRARY", before)
        run = self.run_python("import kivresource, kivresource._library as l, sys\n"
                              "l.FILE_NAME = 'none'\n"
                              "try: kivresource.Session(sys.argv[1])\n"
                              "except kivresource.CacheError as error: print(error)")
        self.assertIn("libc.so.6 has no function kivsession_open", run.stdout, run.stderr)


if __name__ == "__main__":
    unittest.main()
