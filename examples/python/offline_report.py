"""Prints which clips of a project are offline, what is left of them, and what to connect.

    offline_report.py [PROJECT_SPACE]

The exit status is 1 when a clip is offline that has no proxy to go on with.
"""

import sys

import fsys


def main(space: str | None) -> int:
    stuck = 0
    with fsys.open(space) as session:
        for root in session.missing_locations():
            print(f"not connected: {root}")
        wanted: dict[str, list[str]] = {}
        for clip in session.offline():
            print(f"{clip.cookie}  {clip.offline} offline{', a proxy is there' if clip.proxy_online else ''}")
            stuck += not clip.proxy_online
            for place in clip.connect:
                wanted.setdefault(place.name or place.folder, []).append(clip.cookie)
        for name, cookies in wanted.items():
            print(f"connect {name}: brings back {len(cookies)}")
    return 1 if stuck else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1] if len(sys.argv) > 1 else None))
