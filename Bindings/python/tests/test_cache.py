"""The cache for asyncio."""

import asyncio
import gc
import json
import logging
import os
import shutil
import signal
import subprocess
import sys
import threading
import unittest
import warnings
from pathlib import Path
from typing import Any, Dict, List, Optional, Tuple, Type, Union
from unittest import mock

from kivresource import Cache, CacheBusyError, CacheClosedError, CacheError, Outcome, Session
from kivresource.cache import RequestHandler
from kivresource.lines import CheckEvent, Line, PassReportEvent
from support import (
    CONTENT,
    PATIENCE,
    AsyncCacheTestCase,
    CacheTestCase,
    banner,
    config,
    ids,
    plain,
)


class Passes(AsyncCacheTestCase):
    async def test_loads_and_finds_what_the_configuration_names(self) -> None:
        async with self.cache(main=self.serve()) as cache:
            outcome = await self.soon(cache.load(CONTENT / "first.json"))
            self.assertTrue(outcome.complete)
            self.assertEqual(len(outcome.loaded), 6)
            self.assertEqual(len(await cache.resources()), 6)
            self.assertEqual(ids(await cache.resources(id="night-train")), ["night-train"])
            self.assertEqual(len(await cache.resources(type="banner")), 3)
            self.assertEqual(await cache.resources(id="night-train", type="banner"), [])
            self.assertEqual(await cache.resources(id=""), [])

    async def test_tells_what_failed_and_why(self) -> None:
        async with self.cache(main=self.serve()) as cache:
            outcome = await self.soon(cache.load(config(banner("b", "no/such.png"), plain("p"))))
            self.assertEqual(ids(outcome.loaded), ["p"])
            [failure] = outcome.failed
            self.assertEqual(failure.resource["resourceID"], "b")
            assert failure.error is not None
            self.assertEqual(failure.error["code"], 102)
            self.assertFalse(outcome.complete)
            self.assertFalse(outcome.stopped)

    async def test_an_update_drops_the_rest_and_a_clean_up_removes_its_files(self) -> None:
        async with self.cache(main=self.serve()) as cache:
            await self.soon(cache.load(str(CONTENT / "first.json")))
            outcome = await self.soon(cache.update(CONTENT / "second.json"))
            self.assertEqual(ids([f.resource for f in outcome.failed]), ["lost-balloon"])
            self.assertNotIn("harbour-ferry", ids(await cache.resources()))
            orphans = (await cache.audit())["orphaned"]
            self.assertEqual([os.path.basename(o["path"]) for o in orphans], ["harbour-ferry.png"])
            would = await cache.clean_up(dry_run=True)
            self.assertTrue(os.path.exists(orphans[0]["path"]))
            self.assertEqual((await cache.clean_up())["removed"], would["removed"])
            self.assertFalse(os.path.exists(orphans[0]["path"]))

    async def test_selects_by_id_or_type(self) -> None:
        both = config(plain("1", type="s"), plain("2"))
        async with self.cache() as cache:
            self.assertEqual(ids((await self.soon(cache.load(both, id="2"))).loaded), ["2"])
            self.assertEqual(ids((await self.soon(cache.load(both, type="s"))).loaded), ["1"])
            self.assertEqual((await self.soon(cache.load(both, id="")))
                             .loaded, [])
            with self.assertRaises(ValueError):
                await cache.load(both, id="1", type="s")

    async def test_passes_run_one_after_another_in_the_order_of_the_calls(self) -> None:
        server = self.gated_server()
        async with self.cache(main=server.url) as cache:
            passes = [asyncio.create_task(cache.load(config(banner(str(n), f"{n}.png"))))
                      for n in range(5)]
            await self.until_asked(server)
            server.gate.set()
            outcomes = await self.soon(asyncio.gather(*passes))
            self.assertEqual([ids(o.loaded) for o in outcomes], [[str(n)] for n in range(5)])
            self.assertTrue(all(o.complete for o in outcomes))

    async def test_a_configuration_may_be_changed_while_its_pass_waits(self) -> None:
        server = self.gated_server()
        async with self.cache(main=server.url) as cache:
            first = asyncio.create_task(cache.load(config(banner("1", "1.png"))))
            await self.until_asked(server)
            waiting = config(plain("2"))
            second = asyncio.create_task(cache.load(waiting))
            await asyncio.sleep(0)
            waiting["items"].clear()
            server.gate.set()
            await self.soon(first)
            self.assertEqual(ids((await self.soon(second)).loaded), ["2"])

    async def test_a_pass_that_finishes_several_times_has_one_outcome(self) -> None:
        items = [banner("1", "1.png"), plain("2"), banner("3", "3.png"), plain("4")]
        async with self.cache() as cache:  # no server: every file fails at once
            stream = cache.events()
            outcome = await self.soon(cache.load(config(*items)))
            self.assertEqual(ids(outcome.loaded), ["2", "4"])
            self.assertEqual(ids([f.resource for f in outcome.failed]), ["1", "3"])
        events = [event["event"] async for event in stream]
        self.assertEqual(len(events) - events.count("didFinishLoading"), 4)
        self.assertGreater(events.count("didFinishLoading"), 1)

    async def test_a_finish_while_files_are_loading_does_not_end_the_pass(self) -> None:
        server = self.gated_server()
        async with self.cache(main=server.url) as cache:
            stream = cache.events()
            # The link of the first makes no URL, so that it fails at once.
            items = config(banner("1", "a b.png", priority=9), banner("2", "2.png"))
            task = asyncio.create_task(cache.load(items))
            await self.until_asked(server)
            while (await self.soon(stream.__anext__()))["event"] != "didFinishLoading":
                pass
            await self.soon(cache.state())
            self.assertFalse(task.done())
            server.gate.set()
            outcome = await self.soon(task)
            self.assertEqual(ids(outcome.loaded), ["2"])
            self.assertEqual(ids([f.resource for f in outcome.failed]), ["1"])

    async def test_nothing_to_load_is_a_complete_pass(self) -> None:
        async with self.cache() as cache:
            configurations: List[Optional[Dict[str, Any]]] = [None, {}, {"items": []}, {"items": 7}]
            for nothing in configurations:
                self.assertEqual(await self.soon(cache.load(nothing)), Outcome())

    async def test_a_configuration_that_cannot_be_read_is_an_error_and_no_pass(self) -> None:
        broken = self.directory / "broken.json"
        broken.write_text('{"items"')
        async with self.cache() as cache:
            paths: List[Union[str, Path]] = ["/no/such/file", broken, self.directory]
            for path in paths:
                with self.subTest(path=path), self.assertRaises(CacheError):
                    await self.soon(cache.load(path))
            with self.assertRaises(ValueError):
                await cache.load({"items": [{"priority": float("nan")}]})
            with self.assertRaises(TypeError):
                await cache.load({"items": [object()]})
            with self.assertRaises(TypeError):
                await cache.load(7)  # type: ignore[arg-type]
            self.assertEqual(ids((await self.soon(cache.load(config(plain("1"))))).loaded), ["1"])


class Stopping(AsyncCacheTestCase):
    async def test_stops_the_pass_and_those_that_wait(self) -> None:
        server = self.gated_server()
        async with self.cache(main=server.url) as cache:
            first = asyncio.create_task(cache.load(config(plain("p"), banner("1", "1.png"))))
            await self.until_asked(server)
            second = asyncio.create_task(cache.load(config(banner("2", "2.png"))))
            await asyncio.sleep(0)
            await self.soon(cache.stop())
            outcome = await self.soon(first)
            self.assertTrue(outcome.stopped)
            self.assertFalse(outcome.complete)
            self.assertEqual(ids(outcome.loaded), ["p"])
            self.assertEqual(await self.soon(second), Outcome(stopped=True))
            server.gate.set()
            self.assertEqual(ids((await self.soon(cache.load(config(banner("3", "3.png"))))).loaded),
                             ["3"])

    async def test_a_stop_before_and_after_a_pass_does_not_end_it_early(self) -> None:
        async with self.cache() as cache:
            for n in range(20):
                stop = asyncio.create_task(cache.stop())
                await asyncio.sleep(0)
                outcome = await self.soon(cache.load(config(plain(str(n)))))
                self.assertEqual((ids(outcome.loaded), outcome.stopped), ([str(n)], False))
                await stop

    async def test_cancelling_the_task_stops_the_pass(self) -> None:
        server = self.gated_server()
        async with self.cache(main=server.url) as cache:
            task = asyncio.create_task(cache.load(config(banner("1", "1.png"))))
            await self.until_asked(server)
            task.cancel()
            with self.assertRaises(asyncio.CancelledError):
                await task
            outcome = await self.soon(cache.load(config(plain("2"))))
            self.assertEqual((ids(outcome.loaded), outcome.failed, outcome.stopped),
                             (["2"], [], False))
            self.assertEqual((await cache.state())["downloads"], 0)

    async def test_a_cancelled_task_whose_pass_waits_never_begins(self) -> None:
        server = self.gated_server()
        async with self.cache(main=server.url) as cache:
            first = asyncio.create_task(cache.load(config(banner("1", "1.png"))))
            await self.until_asked(server)
            second = asyncio.create_task(cache.load(config(plain("2"))))
            third = asyncio.create_task(cache.load(config(plain("3"))))
            await asyncio.sleep(0)
            second.cancel()
            server.gate.set()
            self.assertEqual(ids((await self.soon(first)).loaded), ["1"])
            self.assertEqual(ids((await self.soon(third)).loaded), ["3"])
            self.assertEqual(ids(await cache.resources()), ["1", "3"])

    async def test_a_cancelled_question_does_not_disturb_the_next(self) -> None:
        async with self.cache() as cache:
            for _ in range(50):
                task = asyncio.create_task(cache.audit())
                await asyncio.sleep(0)
                task.cancel()
            self.assertEqual((await self.soon(cache.space()))["result"], "space")
            self.assertEqual(await cache.resources(), [])


class Questions(AsyncCacheTestCase):
    async def test_space_state_and_audit(self) -> None:
        async with self.cache(main=self.serve()) as cache:
            before = (await cache.space())["cacheUsed"]
            await self.soon(cache.load(CONTENT / "first.json"))
            self.assertGreater((await cache.space())["cacheUsed"], before)
            state = await cache.state()
            self.assertEqual((state["downloads"], state["saveError"]), (0, None))
            audit = await cache.audit()
            self.assertEqual([audit["missing"], audit["orphaned"]], [[], []])
            [found] = await cache.resources(id="harbour-ferry")
            os.remove(found["useFilePaths"][0])
            [missing] = (await cache.audit())["missing"]
            self.assertEqual((missing["path"], missing["resourceID"]),
                             (found["useFilePaths"][0], "harbour-ferry"))

    async def test_many_questions_at_once_are_answered_each(self) -> None:
        async with self.cache() as cache:
            await self.soon(cache.load(config(*(plain(str(n)) for n in range(100)))))
            questions = [cache.resources(id=str(n)) for n in range(100)]
            answers = await self.soon(asyncio.gather(*questions))
            self.assertEqual([ids(a) for a in answers], [[str(n)] for n in range(100)])

    async def test_settings_are_changed_one_by_one(self) -> None:
        async with self.cache(settings={"threads": 1}) as cache:
            self.assertEqual((await cache.settings())["threads"], 1)
            await cache.set_settings({"bandwidth": 1000, "proxy": ""})
            settings = await cache.settings()
            self.assertEqual((settings["threads"], settings["bandwidth"], settings["proxy"]),
                             (1, 1000, ""))
            with self.assertRaisesRegex(CacheError, "threads"):
                await cache.set_settings({"bandwidth": 1, "threads": 0})
            self.assertEqual(await cache.settings(), settings)

    async def test_maintenance_is_refused_during_a_pass(self) -> None:
        server = self.gated_server()
        async with self.cache(main=server.url) as cache:
            task = asyncio.create_task(cache.load(config(banner("1", "1.png"))))
            await self.until_asked(server)
            self.assertTrue((await cache.audit())["downloadsAreInFlight"])
            self.assertEqual((await cache.state())["downloads"], 1)
            with self.assertRaises(CacheError):
                await cache.clean_up()
            with self.assertRaisesRegex(CacheError, "settings cannot change"):
                await cache.set_settings({"threads": 1})
            server.gate.set()
            self.assertTrue((await self.soon(task)).complete)

    async def test_the_servers_are_changed(self) -> None:
        async with self.cache() as cache:
            item = config(banner("f", "banners/harbour-ferry.png"))
            [failure] = (await self.soon(cache.load(item))).failed
            assert failure.error is not None
            self.assertEqual(failure.error["code"], 101)
            await cache.set_servers(main=None, reserve=self.serve())
            await cache.set_servers(main=self.serve(), reserve=None)
            self.assertTrue((await self.soon(cache.load(item))).complete)


class Events(AsyncCacheTestCase):
    async def test_each_stream_has_all_events_since_it_was_made(self) -> None:
        async with self.cache() as cache:
            first, second = cache.events(), cache.events()
            await self.soon(cache.load(config(plain("1"))))
            late = cache.events()
            await self.soon(cache.load(config(plain("2"))))
        one = ["didLoadResource", "didFinishLoading"]
        for stream, expected in ((first, one + one), (second, one + one), (late, one)):
            self.assertEqual([event["event"] async for event in stream], expected)

    async def test_a_stream_ends_for_all_that_wait_when_the_cache_is_closed(self) -> None:
        cache = self.cache()
        await cache.open()
        stream = cache.events()

        async def count() -> int:
            return len([event async for event in stream])

        tasks = [asyncio.create_task(count()) for _ in range(3)]
        await self.soon(cache.load(config(plain("1"))))
        await cache.close()
        self.assertEqual(sum(await self.soon(asyncio.gather(*tasks))), 2)
        with self.assertRaises(StopAsyncIteration):
            await stream.__anext__()

    async def test_a_stream_that_nobody_reads_is_forgotten(self) -> None:
        async with self.cache() as cache:
            task = asyncio.create_task(cache.load(config(plain("1"))))
            async for event in cache.events():
                self.assertEqual(event["event"], "didLoadResource")
                break
            await self.soon(task)
            gc.collect()
            self.assertEqual(len(cache._streams), 0)

    async def test_functions_are_called_and_one_that_raises_disturbs_none(self) -> None:
        calls: List[str] = []
        cache = self.cache()

        def fail(_: object) -> None:
            calls.append("fail")
            raise RuntimeError("as it should")

        cache.on("didLoadResource", fail)
        cache.on("didLoadResource", lambda event: calls.append(event["resource"]["resourceID"]))
        cache.on("didFailToLoadResource", lambda event: calls.append("failed"))
        cache.on("didFinishLoading", lambda event: calls.append("finish"))
        async with cache:
            await self.soon(cache.load(config(plain("1"), banner("2", "2.png"))))
            self.assertEqual(set(calls), {"1", "fail", "failed", "finish"})
            self.assertEqual(calls[-1], "finish")
            self.assertEqual([str(h["exception"]) for h in self.handled], ["as it should"])
            self.handled.clear()
            cache.off("didLoadResource", fail)
            calls.clear()
            await self.soon(cache.load(config(plain("1"))))
            self.assertEqual(calls, ["1", "finish"])

    async def test_a_function_may_set_and_unset_functions(self) -> None:
        calls: List[int] = []
        async with self.cache() as cache:
            def once(_: object) -> None:
                calls.append(1)
                cache.off("didFinishLoading", once)
                cache.on("didFinishLoading", lambda _: calls.append(3))

            cache.on("didFinishLoading", once)
            cache.on("didFinishLoading", lambda _: calls.append(2))
            await self.soon(cache.load(None))
            self.assertEqual(calls, [1, 2])
            await self.soon(cache.load(None))
            self.assertEqual(calls, [1, 2, 2, 3])

    async def test_an_unknown_name_and_a_coroutine_function_are_refused(self) -> None:
        async def coroutine(_: object) -> None:
            pass

        cache = self.cache()
        with self.assertRaises(ValueError):
            cache.on("didLoad", print)  # type: ignore[call-overload]
        with self.assertRaises(TypeError):
            cache.on("progress", coroutine)
        with self.assertRaises(ValueError):
            cache.off("progress", print)

    async def test_progress_is_reported_on_request(self) -> None:
        server = self.gated_server()
        async with self.cache(main=server.url) as cache:
            stream = cache.events()
            await cache.report_progress()
            task = asyncio.create_task(cache.load(config(banner("1", "1.png"))))
            event = await self.soon(stream.__anext__())
            while event["event"] != "progress":
                event = await self.soon(stream.__anext__())
            self.assertEqual((event["completedFiles"], event["files"], event["runningTransfers"]),
                             (0, 1, 1))
            await cache.report_progress(False)
            server.gate.set()
            await self.soon(task)

    async def test_a_paused_pass_waits_and_is_reported(self) -> None:
        server = self.gated_server()
        server.gate.set()
        async with self.cache(main=server.url) as cache:
            reports: List[PassReportEvent] = []
            cache.on("passReport", reports.append)
            await cache.report_passes()
            await cache.pause()
            await cache.set_bandwidth(1000)
            self.assertTrue((await cache.state())["isPaused"])
            self.assertEqual((await cache.settings())["bandwidth"], 1000)
            await cache.set_bandwidth(0)
            task = asyncio.create_task(cache.load(config(banner("1", "1.png"))))
            while (await cache.state())["downloads"] == 0:
                await asyncio.sleep(0)
            self.assertFalse(task.done())
            self.assertEqual(reports, [])
            await cache.resume()
            outcome = await self.soon(task)
            self.assertTrue(outcome.complete)
            await cache.state()  # answered after the report
            self.assertEqual([report["outcome"] for report in reports], ["done"])
            entry = reports[0]["entries"][0]
            self.assertEqual((entry["resourceID"], entry["outcome"]), ("1", "added"))
            self.assertEqual((entry["files"][0]["statusCode"], entry["files"][0]["tries"]), (200, 1))
            await cache.report_passes(False)
            await self.soon(cache.load(config(plain("2"))))
            await cache.state()
            self.assertEqual(len(reports), 1)

    async def test_transfers_wait_until_they_are_allowed(self) -> None:
        server = self.gated_server()
        server.gate.set()
        async with self.cache(main=server.url) as cache:
            await cache.allow_transfers(False)
            task = asyncio.create_task(cache.load(config(banner("1", "1.png"))))
            while (await cache.state())["downloads"] == 0:
                await asyncio.sleep(0)
            state = await cache.state()
            self.assertEqual((state["isPaused"], state["allowsTransfers"]), (False, False))
            self.assertFalse(server.asked.is_set())
            await cache.allow_transfers(True)
            self.assertTrue((await self.soon(task)).complete)

    async def test_a_function_answers_requests(self) -> None:
        server = self.gated_server()
        server.gate.set()
        async with self.cache(main=server.url) as cache:
            urls: List[str] = []

            async def later(url: str) -> Dict[str, str]:
                await asyncio.sleep(0)
                urls.append(url)
                return {"X-Token": f"for {url}"}

            def now(url: str) -> Dict[str, str]:
                urls.append(url)
                return {}

            await cache.answer_requests(later)
            outcome = await self.soon(cache.load(config(banner("1", "1.png"), banner("2", "2.png"))))
            self.assertTrue(outcome.complete)
            self.assertEqual(sorted(urls), [f"{server.url}/1.png", f"{server.url}/2.png"])
            self.assertEqual(sorted(server.tokens), [f"for {url}" for url in sorted(urls)])
            await cache.answer_requests(now)
            self.assertTrue((await self.soon(cache.load(config(banner("3", "3.png"))))).complete)
            self.assertEqual(urls[2:], [f"{server.url}/3.png"])
            await cache.answer_requests(None)
            self.assertTrue((await self.soon(cache.load(config(banner("4", "4.png"))))).complete)
            self.assertEqual(len(urls), 3)
            self.assertEqual(server.tokens[2:], [None, None])

    async def test_a_request_without_a_valid_answer_is_refused(self) -> None:
        server = self.gated_server()

        def failing(url: str) -> Dict[str, str]:
            raise KeyError("no token")

        async def cancelled(url: str) -> Dict[str, str]:
            raise asyncio.CancelledError()

        answers: List[Tuple[RequestHandler, Optional[Type[Exception]]]] = [
            (lambda url: None, None),
            (failing, KeyError),
            (cancelled, None),
            (lambda url: {"Host": "secret"}, CacheError),
            (lambda url: {"X-Token": "secret\n"}, CacheError),
            (lambda url: {"X-Token": b"secret"}, TypeError),  # type: ignore[dict-item]
            (lambda url: {"X-Token": 7}, CacheError),  # type: ignore[dict-item]
            (lambda url: 7, TypeError),  # type: ignore[list-item, return-value]
        ]
        async with self.cache(main=server.url, settings={"triesPerServer": 1}) as cache:
            for answer, expected in answers:
                await cache.answer_requests(answer)
                outcome = await self.soon(cache.load(config(banner("1", "1.png"))))
                self.assertEqual(len(outcome.failed), 1)
                await cache.state()
                self.assertEqual([type(each["exception"]) for each in self.handled],
                                 [expected] if expected else [])
                self.assertNotIn("secret", str(self.handled))
                self.handled.clear()
        self.assertFalse(server.asked.is_set())

    async def test_a_request_that_was_paused_is_answered_again(self) -> None:
        server = self.gated_server()
        server.gate.set()
        asked: "asyncio.Queue[asyncio.Future[Dict[str, str]]]" = asyncio.Queue()

        def ask(url: str) -> "asyncio.Future[Dict[str, str]]":
            answer: "asyncio.Future[Dict[str, str]]" = asyncio.get_running_loop().create_future()
            asked.put_nowait(answer)
            return answer

        async with self.cache(main=server.url) as cache:
            await cache.answer_requests(ask)
            task = asyncio.create_task(cache.load(config(banner("1", "1.png"))))
            first = await self.soon(asked.get())
            await cache.pause()
            first.set_result({"X-Token": "first"})
            await cache.resume()
            (await self.soon(asked.get())).set_result({"X-Token": "second"})
            self.assertTrue((await self.soon(task)).complete)
            self.assertEqual(server.tokens, ["second"])

    async def test_closing_ends_the_answers(self) -> None:
        server = self.gated_server()
        asked = asyncio.Event()
        ended: List[bool] = []

        async def forever(url: str) -> Dict[str, str]:
            asked.set()
            try:
                await asyncio.Event().wait()
            finally:
                ended.append(True)
            return {}

        async with self.cache(main=server.url) as cache:
            await cache.answer_requests(forever)
            task = asyncio.create_task(cache.load(config(banner("1", "1.png"))))
            await self.soon(asked.wait())
        with self.assertRaises(CacheClosedError):
            await task
        self.assertEqual(ended, [True])
        self.assertFalse(server.asked.is_set())

    async def test_a_revalidation_is_reported(self) -> None:
        server = self.gated_server()
        server.gate.set()
        async with self.cache(main=server.url) as cache:
            await self.soon(cache.load(config(banner("1", "1.png"))))
            stored = (await cache.resources())[0]["useFilePaths"][0]
            Path(stored).write_text("changed")
            server.gate.clear()
            server.asked.clear()
            running = asyncio.create_task(cache.revalidate())
            await self.until_asked(server)
            self.assertEqual((await self.soon(cache.revalidate()))["outcome"], "refused")
            server.gate.set()
            first = await self.soon(running)
            self.assertEqual(first["outcome"], "done")
            [file] = first["files"]
            self.assertEqual((file["path"], file["outcome"]), (stored, "replaced"))
            self.assertEqual(Path(stored).read_text(), "/1.png")
            self.assertEqual((await self.soon(cache.revalidate(id="2")))["files"], [])
            server.gate.clear()
            server.asked.clear()
            waiting = asyncio.create_task(cache.revalidate(type=None))
            await self.until_asked(server)
            await cache.stop()
            self.assertEqual((await self.soon(waiting))["outcome"], "stopped")
            server.asked.clear()
            waiting = asyncio.create_task(cache.revalidate())
            await self.until_asked(server)
        with self.assertRaises(CacheClosedError):
            await waiting

    async def test_a_configuration_is_followed(self) -> None:
        served = self.directory / "served"
        served.mkdir()
        (served / "1.png").write_text("one")
        (served / "c.json").write_text(json.dumps(config(banner("1", "1.png"))))
        url = self.serve(served)
        async with self.cache(main=url) as cache:
            checks: "asyncio.Queue[CheckEvent]" = asyncio.Queue()
            cache.on("check", checks.put_nowait)
            events = cache.events()
            with self.assertRaisesRegex(CacheError, "followed"):
                await cache.check_now()
            await cache.follow(f"{url}/c.json", interval=0, jitter=0)
            check = await self.soon(checks.get())
            self.assertEqual((check["outcome"], check["statusCode"]), ("updated", 200))
            self.assertIsNone(check["nextCheck_ms"])
            report = check["report"]
            assert report is not None
            self.assertEqual([each["outcome"] for each in report["entries"]], ["added"])
            self.assertEqual(ids(await cache.resources()), ["1"])
            self.assertEqual(
                [(await self.soon(events.__anext__()))["event"] for _ in range(3)],
                ["didLoadResource", "didFinishLoading", "check"],
            )
            self.assertEqual((await cache.state())["follows"], f"{url}/c.json")
            await cache.check_now()
            check = await self.soon(checks.get())
            self.assertEqual((check["outcome"], check["report"]), ("unchanged", None))
            # A pass of the host's is one as before.
            self.assertEqual(ids((await self.soon(cache.load(config(plain("2"))))).loaded), ["2"])
            await cache.follow(f"{url}/none.json", mirrors=[f"{url}/c.json"], interval=1000, jitter=0)
            check = await self.soon(checks.get())
            self.assertEqual((check["outcome"], check["server"]), ("updated", f"{url}/c.json"))
            self.assertEqual(check["nextCheck_ms"], 1_000_000)
            await cache.stop_following()
            await cache.stop_following()
            self.assertIsNone((await cache.state())["follows"])
            with self.assertRaises(CacheError):
                await cache.check_now()
            self.assertTrue(checks.empty())

    async def test_a_wrong_follow_says_what_is_wrong(self) -> None:
        async with self.cache() as cache:
            url = "http://127.0.0.1/c.json"
            with self.assertRaisesRegex(CacheError, '"url"'):
                await cache.follow("c.json")
            with self.assertRaisesRegex(CacheError, '"mirrors"'):
                await cache.follow(url, mirrors=url)
            with self.assertRaisesRegex(CacheError, '"interval_s"'):
                await cache.follow(url, interval=-1)
            with self.assertRaisesRegex(CacheError, '"jitter"'):
                await cache.follow(url, jitter=2)
            with self.assertRaises(ValueError):
                await cache.follow(url, jitter=float("nan"))
            self.assertIsNone((await cache.state())["follows"])

    async def test_a_cache_is_closed_during_a_check(self) -> None:
        server = self.gated_server()
        async with self.cache() as cache:
            checks: List[CheckEvent] = []
            cache.on("check", checks.append)
            await cache.follow(f"{server.url}/c.json")
            await self.until_asked(server)
        self.assertEqual(checks, [])

    async def test_a_lease_keeps_the_file_of_a_replaced_version(self) -> None:
        server = self.gated_server()
        server.gate.set()
        async with self.cache(main=server.url) as cache:
            with self.assertRaises(CacheError):
                await cache.lease("1")
            await self.soon(cache.load(config(banner("1", "1.png"))))
            stored = (await cache.resources())[0]["useFilePaths"][0]
            async with await cache.lease("1") as lease:
                leased = lease.resource["useFilePaths"][0]
                await self.soon(cache.load(config({**banner("1", "2.png"), "updated": 99})))
                self.assertFalse(os.path.exists(stored))
                self.assertTrue(os.path.exists(leased))
                self.assertEqual([item["path"] for item in (await cache.audit())["leased"]], [leased])
            await lease.end()
            self.assertFalse(os.path.exists(leased))
            kept = await cache.lease("1")
        self.assertFalse(os.path.exists(kept.resource["useFilePaths"][0]))
        await kept.end()

    async def test_a_trim_removes_what_was_not_shown_for_the_longest_time(self) -> None:
        server = self.gated_server()
        server.gate.set()
        async with self.cache(main=server.url) as cache:
            await self.soon(cache.load(config(banner("1", "1.png"), banner("2", "2.png"))))
            for resource in await cache.resources():
                os.utime(resource["useFilePaths"][0], (1, 1))
            await cache.note_shown("1")
            bound = (await cache.space())["cacheUsed"] - 1
            self.assertEqual((await cache.trim(bound))["removed"], [])
            dry = await cache.trim(bound, resources="leastShown", dry_run=True)
            self.assertEqual(len(await cache.resources()), 2)
            trimmed = await cache.trim(bound, resources="leastShown")
            self.assertEqual([each["resourceID"] for each in trimmed["resources"]], ["2"])
            self.assertEqual(trimmed["removed"], dry["removed"])
            self.assertTrue(trimmed["isBoundKept"])
            self.assertEqual([each["resourceID"] for each in await cache.resources()], ["1"])
            with self.assertRaises(CacheError):
                await cache.trim(-1)

    async def test_a_list_that_cannot_be_saved_is_an_error(self) -> None:
        async with self.cache() as cache:
            await self.soon(cache.load(config(plain("1"))))
            [saved] = self.root.rglob("resources_config.json")

            async def fail_to_save(identifier: str) -> None:
                saved.unlink()
                (saved / "in the way").mkdir(parents=True)
                await self.soon(cache.load(config(plain(identifier))))
                self.assertIsNotNone((await cache.state())["saveError"])
                shutil.rmtree(saved)
                await self.soon(cache.load(None))
                self.assertIsNone((await cache.state())["saveError"])

            with self.assertLogs("kivresource", logging.ERROR) as logged:
                await fail_to_save("2")
            self.assertEqual(len(logged.output), 1)
            self.assertIn("could not be saved", logged.output[0])
            errors: List[str] = []
            cache.on("error", lambda line: errors.append(line["error"]))
            with mock.patch("kivresource.cache._logger") as logger:
                await fail_to_save("3")
            logger.error.assert_not_called()
            self.assertEqual(len(errors), 1)
            self.assertIn("could not be saved", errors[0])


class Closing(AsyncCacheTestCase):
    async def test_operations_that_wait_raise_and_so_do_later_ones(self) -> None:
        server = self.gated_server()
        cache = self.cache(main=server.url)
        await cache.open()
        tasks = [asyncio.create_task(cache.load(config(banner(str(n), f"{n}.png"))))
                 for n in range(3)]
        await self.until_asked(server)
        question = asyncio.create_task(cache.space())
        await asyncio.sleep(0)
        await self.soon(cache.close())
        for task in (*tasks, question):
            with self.assertRaises(CacheClosedError):
                await self.soon(task)
        await cache.close()
        for operation in (cache.load({}), cache.update({}), cache.stop(), cache.resources(),
                          cache.audit(), cache.settings(), cache.report_progress()):
            with self.assertRaises(CacheClosedError):
                await operation
        self.assertEqual([event async for event in cache.events()], [])
        with self.assertRaises(CacheError):
            await cache.open()

    async def test_closes_while_others_close(self) -> None:
        cache = self.cache()
        await cache.open()
        await self.soon(asyncio.gather(*(cache.close() for _ in range(5))))
        async with self.cache():
            pass

    async def test_the_loop_forgets_the_descriptor(self) -> None:
        cache = self.cache()
        await cache.open()
        descriptor = cache._descriptor
        await cache.close()
        self.assertFalse(asyncio.get_running_loop().remove_reader(descriptor))

    async def test_a_cancelled_close_closes_all_the_same(self) -> None:
        cache = self.cache()
        await cache.open()
        task = asyncio.create_task(cache.close())
        await asyncio.sleep(0)
        task.cancel()
        with self.assertRaises(asyncio.CancelledError):
            await task
        await self.soon(cache.close())
        async with self.cache():
            pass

    async def test_is_not_open_before(self) -> None:
        cache = self.cache()
        with self.assertRaisesRegex(CacheError, "not open"):
            await cache.space()
        with self.assertRaisesRegex(CacheError, "not open"):
            await cache.load({})
        with self.assertRaisesRegex(CacheError, "not open"):
            cache.events()
        await cache.close()

    async def test_a_second_cache_is_refused(self) -> None:
        async with self.cache():
            with self.assertRaises(CacheBusyError):
                await Cache(self.directory / "other").open()
        async with Cache(self.directory / "other"):
            pass

    async def test_an_error_in_the_block_closes_the_cache(self) -> None:
        with self.assertRaises(ZeroDivisionError):
            async with self.cache():
                1 / 0
        async with self.cache():
            pass


class TheLoop(CacheTestCase):
    """How a cache behaves with the loop. Each test runs loops of its own."""

    def test_the_loop_goes_on_while_the_cache_works(self) -> None:
        server = self.gated_server()

        async def main() -> None:
            async with Cache(self.root, main=server.url) as cache:
                task = asyncio.create_task(cache.load(config(banner("1", "1.png"))))
                # The server answers only when the loop has made turns during the pass.
                loop = asyncio.get_running_loop()
                await loop.run_in_executor(None, server.asked.wait, PATIENCE)
                self.assertFalse(task.done())
                loop.call_soon(server.gate.set)
                self.assertTrue((await asyncio.wait_for(task, PATIENCE)).complete)

        asyncio.run(main())

    def test_ten_thousand_events_are_all_taken(self) -> None:
        async def main() -> None:
            async with Cache(self.root) as cache:
                stream = cache.events()
                tasks = [asyncio.create_task(cache.stop()) for _ in range(10_000)]
                for _ in tasks:
                    await asyncio.wait_for(stream.__anext__(), PATIENCE)
                await asyncio.gather(*tasks)
                self.assertEqual(cache._answers, {})

        asyncio.run(main())

    def test_a_source_that_always_has_a_line_does_not_hold_the_loop(self) -> None:
        received = 0

        class Endless:
            def receive(self, _: float) -> Optional[Line]:
                nonlocal received
                received += 1
                return {"event": "didFinishLoading"} if received < 1_000_000 else None

        cache = Cache(self.root)
        cache._session = Endless()  # type: ignore[assignment]
        cache._read()
        self.assertLess(received, 1_000)

    def test_another_loop_is_refused(self) -> None:
        cache = Cache(self.root)

        errors: List[str] = []

        async def other() -> None:
            for operation in (cache.space(), cache.load({}), cache.stop(), cache.close()):
                try:
                    await operation
                except RuntimeError as error:
                    errors.append(str(error))

        async def main() -> None:
            async with cache:
                thread = threading.Thread(target=lambda: asyncio.run(other()))
                thread.start()
                thread.join()
                self.assertEqual(errors, ["the cache belongs to another event loop"] * 4)
                self.assertEqual((await cache.space())["result"], "space")

        asyncio.run(main())

    def test_ctrl_c_during_a_pass_closes_the_cache(self) -> None:
        server = self.gated_server()
        program = ("import asyncio, json, kivresource, sys\n"
                   "async def main():\n"
                   "  async with kivresource.Cache(sys.argv[1], main=sys.argv[2]) as cache:\n"
                   "    try:\n"
                   "      await cache.load(json.loads(sys.argv[3]))\n"
                   "    finally:\n"
                   "      print('ended')\n"
                   "try:\n"
                   "  asyncio.run(main())\n"
                   "except KeyboardInterrupt:\n"
                   "  kivresource.Session(sys.argv[1]).close()\n"
                   "  print('interrupted')\n")
        with subprocess.Popen(
            [sys.executable, "-W", "error", "-c", program, str(self.root), server.url,
             json.dumps(config(banner("1", "1.png")))],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
        ) as process:
            self.assertTrue(server.asked.wait(PATIENCE))
            process.send_signal(signal.SIGINT)
            output, errors = process.communicate(timeout=PATIENCE)
        self.assertEqual(output, "ended\ninterrupted\n", errors)
        self.assertNotIn("Warning", errors)

    def test_an_unclosed_cache_is_closed_with_a_warning_after_its_loop(self) -> None:
        async def main() -> None:
            await Cache(self.root).open()

        with self.assertWarnsRegex(ResourceWarning, "unclosed <kivresource"):
            asyncio.run(main())
            gc.collect()
        Session(self.root).close()

    def test_a_task_that_is_cancelled_by_the_end_of_the_loop_closes_its_cache(self) -> None:
        async def forever(opened: asyncio.Event) -> None:
            async with Cache(self.root):
                opened.set()
                await asyncio.Event().wait()

        async def main() -> None:
            opened = asyncio.Event()
            self.task = asyncio.create_task(forever(opened))
            await opened.wait()

        with warnings.catch_warnings():
            warnings.simplefilter("error")
            asyncio.run(main())
        Session(self.root).close()


if __name__ == "__main__":
    unittest.main()
