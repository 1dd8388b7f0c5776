"""Shows the library's values in gdb as a reader thinks of them: degrees, texts, version numbers.

gdb loads this by itself with the installed library; from a build tree: (gdb) source gdb/quarvelutil.py
"""

import math

import gdb
import gdb.printing

PI = math.pi


def degrees(radians):
    return math.degrees(float(radians))


class Point3D:
    """Also GPS::Global_point and GPS::Local_point: metres."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "(%.3f, %.3f, %.3f) m" % tuple(float(self.value[axis]) for axis in "xyz")


class PointLLH:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "lat %.9f deg, lon %.9f deg, height %.3f m" % (
            degrees(self.value["lat"]), degrees(self.value["lon"]), float(self.value["height"]))


class Angle:
    """GPS::Heading and GPS::Elevation."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "%.6f deg" % degrees(self.value["radians"])


class Gps_time:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "week %d, %.3f s" % (int(self.value["week"]), int(self.value["ms"]) / 1000.0)


class Version:
    """As to_string() writes it, and every field of what to_string() refuses."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        major, minor, patch, build, revision = (
            int(self.value[field]) for field in ("major", "minor", "patch", "build", "revision"))
        if major < 0 or minor < 0:
            return "<Invalid version>"
        text = "%d.%d" % (major, minor)
        if patch >= 0:
            text += " p%d" % patch
        if build >= 0:
            text += " b%d" % build
        if revision >= 0:
            text += " Rev. %d" % revision
        return text + (" Test" if self.value["test"] else "")


class Signature:
    """CP_MD5::TSignature: the 32 digits that WriteToBuf() writes."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "".join("%02X" % int(self.value["bytes"][i]) for i in range(16))


class Bounded_string:
    """String_base: the text, found by its distance from the spare cell as the library finds it."""

    def __init__(self, value):
        self.value = value

    def address(self):
        start = int(self.value["spare"].address)
        distance = int(self.value["distance"])
        # Where pointers have 64 bits, as the library's address() does it.
        if self.value.type.fields()[-1].name == "far_distance" and distance < (1 << 24) - (1 << 31):
            far = int(self.value["far_distance"]) << 24 | distance & 0xFFFFFF
            return (start + far) & 0xFFFFFFFFFFFF
        return start + distance

    def to_string(self):
        capacity = int(self.value["capacity"])
        if capacity <= 0:
            return '"" (capacity %d)' % capacity
        memory = gdb.selected_inferior().read_memory(self.address(), capacity).tobytes()
        text = memory.split(b"\0")[0].decode("utf-8", "backslashreplace")
        return '"%s" (%d of %d)' % (text, len(memory.split(b"\0")[0]), capacity - 1)


class Builder:
    """String_builder_base: what it appends to, and where."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        if int(self.value["target"]) == 0:
            return "of nothing"
        return "at %d of %s" % (int(self.value["cursor"]),
                                Bounded_string(self.value["target"].dereference()).to_string())


def shared(handle):
    """What a log handle's copies share; None of a null handle."""
    pointer = handle["data"]["_M_ptr"]
    return None if int(pointer) == 0 else pointer.dereference()


def std_string(value):
    size = int(value["_M_string_length"])
    return '"%s"' % value["_M_dataplus"]["_M_p"].string(length=size, encoding="utf-8", errors="replace")


def enumerator(value):
    return str(value).rsplit("::", 1)[-1]


class Log_item_source:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        source = shared(self.value)
        if source is None:
            return "null"
        return "%s, %s, %s %d" % (std_string(source["code_source"]), std_string(source["functionality"]),
                                  enumerator(source["target_type"]), int(source["target"]))


class Log_item:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        item = shared(self.value)
        if item is None:
            return "null"
        return "%s %s from {%s}" % (enumerator(item["priority"]), std_string(item["message"]),
                                    Log_item_source(item["source"]).to_string())


PRINTERS = (
    ("Point3D", Point3D), ("GPS::Global_point", Point3D), ("GPS::Local_point", Point3D),
    ("PointLLH", PointLLH), ("GPS::Heading", Angle), ("GPS::Elevation", Angle), ("GPS::Time", Gps_time),
    ("Util::Version", Version), ("CP_MD5::TSignature", Signature),
    ("String_base", Bounded_string), ("String_builder_base", Builder),
    ("Util::Log_item", Log_item), ("Util::Log_item_source", Log_item_source),
)


def build():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("quarvelutil")
    for name, printer in PRINTERS:
        collection.add_printer(name, "^%s$" % name, printer)
    return collection


gdb.printing.register_pretty_printer(gdb.current_objfile(), build(), replace=True)
