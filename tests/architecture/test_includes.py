"""The includes of src/ and studio/server/ are those that docs/architecture.md shows."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
ROOMS = {folder.name: folder for folder in (ROOT / "src").iterdir() if folder.is_dir()}
ROOMS["studio"] = ROOT / "studio/server"
PAGE = (ROOT / "docs/architecture.md").read_text(encoding="utf-8")

ARROW = re.compile(r"^    (\w+) --> (\w+)$", re.MULTILINE)
ROW = re.compile(r"^\| `(\w+)` \| .* \| ([\w, ]+) \|$", re.MULTILINE)
INCLUDE = re.compile(r'^#\s*include\s*(?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)

# How the headers of other libraries are known; what is left is the standard library's.
LIBRARIES = {
    "opencv2": r"opencv2/",
    "fitsio": r"fitsio",
    "tiffio": r"tiffio\.h",
    "zlib": r"zlib\.h",
    "onnxruntime": r"onnxruntime|.*provider_factory",
    "tclap": r"tclap/",
    "httplib": r"httplib\.h",
    "nlohmann": r"nlohmann/",
}
PUBLIC = "nebulex/"  # the public headers of the library, in src/lib/include
SYSTEM = re.compile(r"\w+|\w+\.h|sys/\w+\.h")  # <vector>, <unistd.h>, <sys/stat.h>


def sources():
    return sorted(path for folder in ROOMS.values() for path in folder.rglob("*")
                  if path.suffix in (".h", ".cpp"))


def room_of(path):
    return next(room for room, folder in ROOMS.items() if path.is_relative_to(folder))


def name_of(path):
    """A source as others include it."""
    room = room_of(path)
    return f"{room}/{path.relative_to(ROOMS[room])}"


def path_of(header):
    room, _, rest = header.partition("/")
    return ROOMS[room] / rest


def includes(path):
    """Pairs of an own and a foreign header, one of which is empty."""
    return INCLUDE.findall(path.read_text(encoding="utf-8"))


def library_of(header):
    for library, pattern in LIBRARIES.items():
        if re.match(pattern, header):
            return library
    return None


def arrows_of_the_source():
    return {
        (room_of(path), own.split("/")[0])
        for path in sources()
        for own, _ in includes(path)
        if own and own.split("/")[0] != room_of(path)
    }


def libraries_of_the_source():
    found = {room_of(path): set() for path in sources()}
    for path in sources():
        for _, foreign in includes(path):
            library = library_of(foreign) if foreign else None
            if library:
                found[room_of(path)].add(library)
    return found


def cycle_from(graph, start):
    """A way along the graph's arrows from a file back to itself, or nothing."""
    ways = [[start]]
    seen = set()
    while ways:
        way = ways.pop()
        for following in graph[way[-1]]:
            if following == start:
                return [*way, start]
            if following not in seen:
                seen.add(following)
                ways.append([*way, following])
    return None


class Includes(unittest.TestCase):
    def test_the_rooms_are_the_folders_of_the_source(self):
        self.assertEqual({room for room, _ in ROW.findall(PAGE)}, set(ROOMS))

    def test_the_picture_shows_the_arrows_of_the_source(self):
        self.assertEqual(set(ARROW.findall(PAGE)), arrows_of_the_source())

    def test_the_table_names_the_libraries_of_each_room(self):
        told = {room: set(names.split(", ")) for room, names in ROW.findall(PAGE)}
        self.assertEqual(told, libraries_of_the_source())

    def test_every_own_header_is_named_from_its_room_and_exists(self):
        for path in sources():
            for own, _ in includes(path):
                if own:
                    with self.subTest(path=path.name, header=own):
                        self.assertTrue(path_of(own).is_file())

    def test_every_other_header_is_of_a_known_library_or_the_system(self):
        for path in sources():
            for _, foreign in includes(path):
                if foreign and not library_of(foreign) and not foreign.startswith(PUBLIC):
                    with self.subTest(path=path.name, header=foreign):
                        self.assertRegex(foreign, f"^({SYSTEM.pattern})$")

    def test_no_header_includes_itself_over_others(self):
        graph = {
            name_of(path): [own for own, _ in includes(path) if own]
            for path in sources()
        }
        for path in graph:
            self.assertIsNone(cycle_from(graph, path))


if __name__ == "__main__":
    unittest.main()
