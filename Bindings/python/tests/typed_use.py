"""Read by mypy alone: what a host writes, and mistakes that the types are to find.

A mistake that is found no longer makes its comment unused, which is an error.
"""

from typing import Dict, List, Optional, Union

from kivresource import Cache, Outcome, Session
from kivresource.lines import CheckEvent, Event, Resource


async def good(cache: Cache) -> List[Union[str, None]]:
    outcome: Outcome = await cache.update({"items": []})
    pictures: List[Union[str, None]] = []
    for resource in outcome.loaded:
        if resource["class"] == "KivResourceStandard":
            pictures.append(resource["image"])
        elif resource["class"] == "KivResourceVideo":
            pictures.append(resource["icon"])
    async for event in cache.events():
        if event["event"] == "progress":
            print(event["receivedBytes"] + 1)
    cache.on("progress", lambda progress: print(progress["files"] + 1))
    cache.on("check", lambda check: print(check["report"] and check["report"]["bytes"] + 1))
    await cache.follow("https://ads.example/config.json", mirrors=["https://b.example/"], interval=1)
    await cache.set_settings({"bandwidth": 1})
    await cache.answer_requests(lambda url: {"Authorization": url})
    await cache.answer_requests(token)
    await cache.answer_requests(None)
    return pictures


async def token(url: str) -> Optional[Dict[str, str]]:
    return {"Authorization": "Bearer 5f0c"} if url.startswith("https://ads.example/") else None


async def mistakes(cache: Cache, resource: Resource, event: Event, check: CheckEvent) -> None:
    resource["image"]  # type: ignore[typeddict-item]
    resource["priority"] + ""  # type: ignore[operator]
    event["resource"]  # type: ignore[typeddict-item]
    cache.on("didLoad", print)  # type: ignore[call-overload]
    cache.on("progress", lambda progress: progress["error"])  # type: ignore[call-overload]
    await cache.set_settings({"bandwith": 1})  # type: ignore[typeddict-item]
    await cache.answer_requests(lambda url: url)  # type: ignore[arg-type, return-value]
    await cache.follow({})  # type: ignore[arg-type]
    check["report"]["bytes"]  # type: ignore[index]
    await cache.load(7)  # type: ignore[arg-type]
    (await cache.load({})).loaded.append("")  # type: ignore[arg-type]


def call(session: Session) -> None:
    session.send({"call": "stopLoading"})
    session.send(b"{}")  # type: ignore[arg-type]
    session.receive()["event"]  # type: ignore[index, typeddict-item]
