"""Examples/python/banners.py on a display: what Tk shows is what the cache has."""

import importlib.util
import struct
import subprocess
import sys
import tkinter
import unittest
from pathlib import Path
from typing import Any, Callable, Dict, List, Tuple
from unittest import mock

from support import CONTENT, PATIENCE, CacheTestCase

EXAMPLE = CONTENT.parent / "python" / "banners.py"


def example() -> Any:
    spec = importlib.util.spec_from_file_location("banners", EXAMPLE)
    assert spec is not None and spec.loader is not None
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def size_of(png: Path) -> Tuple[int, int]:
    width, height = struct.unpack(">II", png.read_bytes()[16:24])
    return width, height


class BannersTest(CacheTestCase):
    def setUp(self) -> None:
        super().setUp()
        self.module = example()

    def open_window(self, server: str, configuration: Path) -> Any:
        window = self.module.Banners(str(self.root), server, str(configuration))
        self.addCleanup(lambda: window.destroy() if window.session is not None
                        and not window.session.closed else None)
        return window

    def run_until(self, window: Any, condition: Callable[[], bool]) -> None:
        """Runs Tk's loop until the condition holds, looking after every event."""
        late: List[bool] = []
        timer = window.after(int(PATIENCE * 1000), late.append, True)
        while not condition():
            self.assertEqual(late, [], "the window does not show it")
            window.tk.dooneevent(0)
        window.after_cancel(timer)
        window.update()

    def shown(self, window: Any) -> Dict[str, Tuple[str, int, int]]:
        """Of each banner that is on the display, the file and the size, as Tk has them."""
        found = {}
        for identifier, button in window.buttons.items():
            image = button.cget("image")
            self.assertTrue(button.winfo_viewable())
            width, height = (int(window.tk.call("image", what, image)) for what in ("width", "height"))
            self.assertGreaterEqual(button.winfo_width(), width)
            self.assertGreaterEqual(button.winfo_height(), height)
            found[identifier] = (Path(window.tk.call(image, "cget", "-file")).name, width, height)
        return found

    def expected(self, *files: str) -> Dict[str, Tuple[str, int, int]]:
        stored = {}
        for identifier, path in (item.split("=") for item in files):
            file = CONTENT / "server" / path
            if not file.exists():  # it is packaged with the library
                file = CONTENT.parents[1] / "InnerAdResources.bundle" / path
            stored[identifier] = (file.name, *size_of(file))
        return stored

    def test_shows_the_banners_and_their_new_versions(self) -> None:
        server = self.serve()
        placeholder = "empty-space=kivresource-placeholder-728x90.png"
        first = self.expected("northlight-spring=banners/spring/v1/northlight-spring-1.png",
                              "harbour-ferry=banners/harbour-ferry.png", placeholder)
        window = self.open_window(server, CONTENT / "first.json")
        self.run_until(window, lambda: len(window.buttons) == 3)
        self.assertEqual(self.shown(window), first)
        window.destroy()

        # Again without a server: what was loaded is there.
        window = self.open_window("", CONTENT / "first.json")
        self.run_until(window, lambda: len(window.buttons) == 3)
        self.assertEqual(self.shown(window), first)
        window.destroy()

        second = self.expected("northlight-spring=banners/spring/v2/northlight-spring-2.png",
                               "rooftop-cinema=banners/rooftop-cinema.png", placeholder)
        window = self.open_window(server, CONTENT / "second.json")
        with mock.patch.object(sys, "stderr"):  # lost-balloon fails
            self.run_until(window, lambda: bool(window.buttons.keys() == second.keys()))
        self.assertEqual(self.shown(window), second)
        window.destroy()

    def test_a_file_that_is_no_picture_is_reported_and_the_others_are_shown(self) -> None:
        content = self.directory / "content"
        content.mkdir()
        (content / "broken.png").write_bytes(b"no picture")
        (content / "good.png").write_bytes(
            (CONTENT / "server" / "banners" / "harbour-ferry.png").read_bytes())
        configuration = self.directory / "config.json"
        configuration.write_text("""{"items": [
            {"engine": "eco_standard", "name": "B", "type": "t", "banner_id": "b", "priority": 2,
             "updated": 1, "market_url": "m", "image_728x90": "broken.png"},
            {"engine": "eco_standard", "name": "G", "type": "t", "banner_id": "g", "priority": 1,
             "updated": 1, "market_url": "m", "image_728x90": "good.png"}]}""")
        window = self.open_window(self.serve(content), configuration)
        with mock.patch.object(sys, "stderr") as errors:
            self.run_until(window, lambda: "g" in window.buttons and errors.write.called)
        self.assertIn("B cannot be shown", errors.write.call_args_list[0].args[0])
        self.assertEqual(window.buttons.keys(), {"g"})

    def test_a_click_opens_links_of_the_web_and_no_others(self) -> None:
        window = self.open_window(self.serve(), CONTENT / "first.json")
        self.run_until(window, lambda: "harbour-ferry" in window.buttons)
        with mock.patch("webbrowser.open") as opened:
            window.buttons["harbour-ferry"].invoke()
            self.module.follow("file:///etc/passwd")
            self.module.follow("javascript:alert(1)")
        opened.assert_called_once_with("https://ferry.example/timetable")

    def test_runs_as_a_program_and_says_how(self) -> None:
        run = subprocess.run([sys.executable, str(EXAMPLE)], stderr=subprocess.PIPE, text=True)
        self.assertEqual(run.returncode, 1)
        self.assertIn("DIRECTORY SERVER CONFIGURATION", run.stderr)


if __name__ == "__main__":
    unittest.main()
