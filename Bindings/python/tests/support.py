"""What the tests share: servers, configurations, and a check of every line that is received."""

import asyncio
import gc
import http.server
import json
import os
import shutil
import signal
import subprocess
import tempfile
import threading
import unittest
from pathlib import Path
from typing import Any, Awaitable, Dict, List, Optional, Tuple, TypeVar

import kivresource
from kivresource import Cache, Session
from line_checker import LineChecker

TOOL = os.environ["KIVRESOURCE_TOOL"]
CONTENT = Path(__file__).resolve().parents[3] / "Examples" / "content"

#: Longer than anything takes: a test that waits so long has failed.
PATIENCE = 120.0

Result = TypeVar("Result")

checker = LineChecker()
log: List[str] = []
_problems: List[str] = []
_receive = Session._receive


def _checked_receive(self: Session, wait_ms: int) -> Tuple[int, Optional[str]]:
    result, text = _receive(self, wait_ms)
    if text is not None:
        _problems.extend(f"{each} in {text[:500]}" for each in checker.problems(json.loads(text)))
    return result, text


# A shell makes what it runs in the background ignore the signal, also in child processes.
signal.signal(signal.SIGINT, signal.default_int_handler)

Session._receive = _checked_receive  # type: ignore[assignment]
kivresource.set_log(log.append)


class Server:
    """`kivresource serve` for a directory."""

    def __init__(self, directory: Path, *arguments: str) -> None:
        self._process = subprocess.Popen(
            [TOOL, "serve", str(directory), *arguments], stdout=subprocess.PIPE, text=True
        )
        assert self._process.stdout is not None
        self.url = self._process.stdout.readline().strip()
        assert self.url.startswith("http://127.0.0.1:"), self.url

    def close(self) -> None:
        self._process.terminate()
        self._process.communicate()


class GatedServer:
    """Answers every request with its path, but only after the gate is opened."""

    def __init__(self) -> None:
        self.gate = threading.Event()
        self.asked = threading.Event()
        #: The header X-Token of each request.
        self.tokens: List[Optional[str]] = []
        owner = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self) -> None:
                owner.tokens.append(self.headers["X-Token"])
                owner.asked.set()
                owner.gate.wait(PATIENCE)
                body = self.path.encode()
                try:
                    self.send_response(200)
                    self.send_header("Content-Length", str(len(body)))
                    self.end_headers()
                    self.wfile.write(body)
                except OSError:
                    pass  # the client has stopped

            def log_message(self, *_: object) -> None:
                pass

        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self._server.daemon_threads = True
        self.url = f"http://127.0.0.1:{self._server.server_address[1]}"
        self._thread = threading.Thread(target=self._server.serve_forever)
        self._thread.start()

    def close(self) -> None:
        self.gate.set()
        self._server.shutdown()
        self._thread.join()
        self._server.server_close()


def plain(identifier: str, **members: Any) -> Dict[str, Any]:
    """An item without files."""
    return {"engine": "other", "name": f"Name of {identifier}", "type": "t",
            "banner_id": identifier, "priority": 1, "updated": 1, **members}


def banner(identifier: str, link: str, **members: Any) -> Dict[str, Any]:
    """An item with an image."""
    return {**plain(identifier), "engine": "eco_standard", "market_url": "m",
            "image_728x90": link, **members}


def config(*items: Dict[str, Any]) -> Dict[str, Any]:
    return {"items": list(items)}


def ids(resources: List[Any]) -> List[str]:
    return [resource["resourceID"] for resource in resources]


class CacheTestCase(unittest.TestCase):
    """A test with a directory of its own. It fails if a line is not as described."""

    def setUp(self) -> None:
        _problems.clear()
        log.clear()
        self.directory = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.directory)
        self.root = self.directory / "root"
        self.addCleanup(self._check_lines)

    def _check_lines(self) -> None:
        gc.collect()
        self.assertEqual(_problems, [], "lines that are not as described")

    def serve(self, directory: Path = CONTENT / "server", *arguments: str) -> str:
        server = Server(directory, *arguments)
        self.addCleanup(server.close)
        return server.url

    def gated_server(self) -> GatedServer:
        server = GatedServer()
        self.addCleanup(server.close)
        return server

    def open_session(self, **arguments: Any) -> Session:
        session = Session(self.root, **arguments)
        self.addCleanup(session.close)
        return session

    def receive(self, session: Session) -> Dict[str, Any]:
        line = session.receive(PATIENCE)
        self.assertIsNotNone(line, "no line came")
        return dict(line or {})

    def answer(self, session: Session, call: Dict[str, Any]) -> Dict[str, Any]:
        """The line with the tag of the call; lines before it are dropped."""
        self.assertEqual(checker.call_problems(call), [])
        session.send({**call, "tag": "answer"})
        while True:
            line = self.receive(session)
            if line.get("tag") == "answer":
                return line


class AsyncCacheTestCase(CacheTestCase, unittest.IsolatedAsyncioTestCase):
    """The test fails if something goes to the loop's exception handler and stays in `handled`."""

    async def asyncSetUp(self) -> None:
        self.handled: List[Dict[str, Any]] = []
        asyncio.get_running_loop().set_exception_handler(
            lambda _, context: self.handled.append(context)
        )

    async def asyncTearDown(self) -> None:
        self.assertEqual(self.handled, [])

    def cache(self, **arguments: Any) -> Cache:
        return Cache(self.root, **arguments)

    async def soon(self, what: "Awaitable[Result]") -> Result:
        return await asyncio.wait_for(what, PATIENCE)

    async def until_asked(self, server: GatedServer) -> None:
        loop = asyncio.get_running_loop()
        self.assertTrue(await loop.run_in_executor(None, server.asked.wait, PATIENCE))
