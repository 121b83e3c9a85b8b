"""Documents as web services send them and programs keep them: dicts in lists in dicts, no two of
them quite alike."""

from __future__ import annotations

from random import Random
from typing import Any

from chance import WORDS, choices, digits, words

Document = dict[str, Any]


def posts(count: int) -> Document:
    """A page of search results: wide dicts of all types, some fields optional, short lists."""
    chance = choices()
    return {
        "statuses": [post(chance, i) for i in range(count)],
        "search_metadata": {"completed_in": 0.087, "query": "%E4%B8%80", "count": count},
    }


def post(chance: Random, number: int) -> Document:
    document: Document = {
        "created_at": f"Sun Aug {number % 28 + 1:02d} 00:29:15 +0000 2014",
        "id": 505874924095815700 + number,
        "id_str": str(505874924095815700 + number),
        "text": words(chance, chance.randint(5, 20)) + " é中"[: chance.randint(0, 3)],
        "source": '<a href="https://x.y/download">client</a>',
        "truncated": False,
        "user": author(chance, number),
        "retweet_count": chance.randint(0, 30),
        "favorite_count": chance.randint(0, 30),
        "favorited": False,
        "retweeted": False,
        "lang": "ja",
        "metadata": {"result_type": "recent", "iso_language_code": "ja"},
        "entities": entities(chance),
    }
    if chance.random() < 0.3:
        document["in_reply_to_status_id"] = 505874920140591104 + number
        document["in_reply_to_screen_name"] = "u" + digits(chance, 6)
    if chance.random() < 0.1:
        document["possibly_sensitive"] = True
    return document


def author(chance: Random, number: int) -> Document:
    return {
        "id": 1186275104 + number,
        "id_str": str(1186275104 + number),
        "name": "AYUMI " + digits(chance, 4),
        "screen_name": "ayuu" + digits(chance, 4),
        "location": chance.choice(["", "Tokyo", "Zürich"]),
        "description": words(chance, chance.randint(0, 15)),
        "protected": False,
        "followers_count": chance.randint(0, 5000),
        "friends_count": chance.randint(0, 900),
        "listed_count": chance.randint(0, 9),
        "created_at": "Sat Feb 16 13:46:25 +0000 2013",
        "favourites_count": chance.randint(0, 999),
        "geo_enabled": chance.random() < 0.5,
        "verified": False,
        "statuses_count": chance.randint(0, 20000),
        "lang": "ja",
        "contributors_enabled": False,
        "profile_background_color": digits(chance, 6),
        "profile_image_url": "http://img/" + digits(chance, 20),
        "following": False,
        "entities": {"description": {"urls": []}},
    }


def entities(chance: Random) -> Document:
    def indices() -> list[int]:
        return [chance.randint(0, 50), chance.randint(50, 99)]

    def link() -> Document:
        url, target = "http://t.co/" + digits(chance, 8), "http://site/" + digits(chance, 12)
        return {"url": url, "expanded_url": target, "indices": [1, 20]}

    def mention() -> Document:
        names = {"screen_name": "u" + digits(chance, 6), "name": words(chance, 2)}
        return {**names, "id": chance.randint(0, 10**9), "indices": [0, 9]}

    tags = [{"text": chance.choice(WORDS), "indices": indices()} for _ in up_to(chance, 3)]
    links = [link() for _ in up_to(chance, 2)]
    return {
        "hashtags": tags,
        "symbols": [],
        "urls": links,
        "user_mentions": [mention() for _ in up_to(chance, 2)],
    }


def up_to(chance: Random, most: int) -> range:
    return range(chance.randint(0, most))


def events(count: int) -> list[Document]:
    """A feed: records with one field that is another kind of dict in each."""
    chance = choices()
    return [event(chance, i) for i in range(count)]


def event(chance: Random, number: int) -> Document:
    kind = chance.choice(["PushEvent", "CreateEvent", "WatchEvent", "IssuesEvent"])
    document = {
        "id": str(2489651045 + number),
        "type": kind,
        "actor": {
            "id": chance.randint(1, 10**7),
            "login": "user" + digits(chance, 4),
            "gravatar_id": "",
            "url": "https://api/users/u" + digits(chance, 4),
            "avatar_url": "https://avatars/u/" + digits(chance, 6),
        },
        "repo": {
            "id": chance.randint(1, 10**8),
            "name": f"o{digits(chance, 3)}/r{digits(chance, 4)}",
            "url": "https://api/repos/" + digits(chance, 8),
        },
        "public": True,
        "created_at": f"2015-01-01T15:00:{number % 60:02d}Z",
        "payload": payload(chance, kind),
    }
    if chance.random() < 0.4:
        login = "org" + digits(chance, 4)
        organisation = {"id": chance.randint(1, 10**7), "login": login, "url": "https://api/orgs/x"}
        document["org"] = organisation
    return document


def payload(chance: Random, kind: str) -> Document:
    if kind == "PushEvent":
        return {
            "push_id": chance.randint(1, 10**9),
            "size": 1,
            "distinct_size": 1,
            "ref": "refs/heads/master",
            "head": digits(chance, 40),
            "before": digits(chance, 40),
            "commits": [commit(chance) for _ in range(chance.randint(1, 3))],
        }
    if kind == "CreateEvent":
        branch = {"ref": "master", "ref_type": "branch", "master_branch": "master"}
        return {**branch, "description": words(chance, 8), "pusher_type": "user"}
    if kind == "WatchEvent":
        return {"action": "started"}
    return {"action": "opened", "issue": issue(chance)}


def commit(chance: Random) -> Document:
    return {
        "sha": digits(chance, 40),
        "author": {"email": digits(chance, 8) + "@mail.com", "name": words(chance, 2)},
        "message": words(chance, 6),
        "distinct": True,
        "url": "https://api/" + digits(chance, 40),
    }


def issue(chance: Random) -> Document:
    names = chance.sample(WORDS, chance.randint(0, 3))
    return {
        "id": chance.randint(1, 10**8),
        "number": chance.randint(1, 999),
        "title": words(chance, 5),
        "labels": [{"name": name, "color": digits(chance, 6)} for name in names],
        "locked": False,
        "comments": 0,
        "body": words(chance, 30),
    }


def polygons(count: int) -> Document:
    """Outlines on a map: most of it are pairs of floats, four levels down."""
    chance = choices()

    def outline() -> list[list[float]]:
        return [[chance.random(), chance.random()] for _ in range(chance.randint(4, 20))]

    def feature(number: int) -> Document:
        return {
            "type": "Feature",
            "properties": {"name": f"c{number}", "pop": number},
            "geometry": {"type": "Polygon", "coordinates": [outline()]},
        }

    return {"type": "FeatureCollection", "features": [feature(i) for i in range(count)]}


def settings(depth: int) -> Document:
    """Dicts inside dicts, all with keys of their own; up to five to the `depth` values."""
    chance = choices()

    def leaf() -> Any:
        return chance.choice(
            [
                chance.randint(0, 999),
                chance.random(),
                words(chance, 2),
                chance.random() < 0.5,
                [words(chance, 1) for _ in range(3)],
                [1, 2, 3],
            ]
        )

    def section(levels: int) -> Document:
        def entry() -> Any:
            return section(levels - 1) if levels > 1 and chance.random() < 0.8 else leaf()

        return {f"{chance.choice(WORDS)}_{key}": entry() for key in range(5)}

    return section(depth)


def logs(count: int) -> list[Document]:
    """Records of one structure, two levels deep, with vectors in them."""
    chance = choices()
    return [
        {
            "ts": 1.6e9 + i * 0.01,
            "level": chance.choice(["INFO", "WARN", "ERROR"]),
            "msg": words(chance, 6),
            "tags": {"host": f"h{i % 50}", "pid": i % 32768, "svc": chance.choice(WORDS)},
            "lat": [chance.random(), chance.random(), chance.random()],
        }
        for i in range(count)
    ]


def records(count: int) -> list[Document]:
    """Dicts that are alike: one key order, one type for each field."""
    return [{"id": i, "value": i * 0.5, "name": f"record {i}"} for i in range(count)]


def records_with_list(count: int) -> list[Document]:
    return [{"id": i, "pair": [i, i + 1], "name": f"n{i}"} for i in range(count)]


def optional_fields(count: int) -> list[Document]:
    """Dicts whose key sets are 128 different ones; each field has its type."""
    chance = choices()

    def record(number: int) -> Document:
        fields = {
            "name": f"name{number}",
            "score": number * 0.5,
            "active": number % 2 == 0,
            "tag": chance.choice(WORDS),
            "count": number % 100,
            "ratio": chance.random(),
            "note": words(chance, 2),
        }
        return {"id": number} | {key: fields[key] for key in fields if chance.random() < 0.7}

    return [record(i) for i in range(count)]


def optional_mixed_fields(count: int) -> list[Document]:
    """Dicts whose fields have other types from one to the next; one of them may be missing."""
    chance = choices()

    def record(number: int) -> Document:
        document = {"id": number, "v": chance.choice([1, 2.5, "x", True])}
        if chance.random() < 0.5:
            document["w"] = chance.choice([1, 2.5, "x", [1, 2]])
        return document

    return [record(i) for i in range(count)]


def dict_of_dicts(count: int) -> dict[str, Document]:
    """A table by its key: dicts that are alike, under keys of their own."""
    return {
        f"k{i}": {"a": i, "b": i * 0.5, "c": f"v{i}", "d": True, "e": [i]} for i in range(count)
    }
