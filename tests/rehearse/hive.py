"""Exports of the registry editor as Python dictionaries, and hives made of them."""
import re
import struct

NONE = 0xFFFFFFFF


def read_export(path):
    """{key path: {value name: (type, bytes)}} in the order of the file; texts in UTF-16."""
    raw = open(path, "rb").read()
    text = raw.decode("utf-16") if raw[:2] == b"\xff\xfe" else raw.decode("cp1252")
    keys, values = {}, None
    for line in re.sub(r"\\\n\s*", "", text.replace("\r\n", "\n")).split("\n"):
        if line.startswith("["):
            values = keys.setdefault(line[1:line.rindex("]")], {})
            continue
        match = re.match(r'(?:@|"((?:[^"\\]|\\.)*)")=(.*)$', line)
        if not match or values is None:
            continue
        name, data = re.sub(r"\\(.)", r"\1", match.group(1) or ""), match.group(2)
        if data.startswith('"'):
            values[name] = (1, (re.sub(r"\\(.)", r"\1", data[1:-1]) + "\0").encode("utf-16-le"))
        elif data.startswith("dword:"):
            values[name] = (4, struct.pack("<I", int(data[6:], 16)))
        elif data.startswith("hex"):
            kind = re.match(r"hex(?:\(([0-9a-f]+)\))?:(.*)$", data)
            values[name] = (int(kind.group(1) or "3", 16), bytes(int(b, 16) for b in kind.group(2).split(",") if b))
    return keys


def text_of(value):
    return value[1].decode("utf-16-le").split("\0")[0] if value else ""


class Hive:
    """Keys are nested dictionaries: name -> (keys, values)."""

    def __init__(self):
        self.cells = bytearray(32)  # after the header of the one bin

    def cell(self, data):
        at = len(self.cells)
        size = (len(data) + 4 + 7) // 8 * 8
        self.cells += struct.pack("<i", -size) + data + bytes(size - 4 - len(data))
        return at

    def value(self, name, kind, data):
        name = name.encode("cp1252", "replace")
        length, place = len(data), 0
        if length <= 4:
            length, place = length | 0x80000000, struct.unpack("<I", data.ljust(4, b"\0"))[0]
        else:
            place = self.cell(data)
        return self.cell(struct.pack("<2sHIIIHH", b"vk", len(name), length, place, kind, 1 if name else 0, 0) + name)

    def key(self, name, keys, values, parent=0, flags=0x20):
        encoded = name.encode("cp1252", "replace")
        at = self.cell(bytes(76 + len(encoded)))
        below = [self.key(child, *content, parent=at) for child, content in sorted(keys.items(), key=lambda k: k[0].upper())]
        held = [self.value(value, *content) for value, content in values.items()]
        index = self.cell(struct.pack("<2sH", b"lh", len(below)) + b"".join(struct.pack("<II", k, 0) for k in below)) if below else NONE
        listed = self.cell(b"".join(struct.pack("<I", v) for v in held)) if held else NONE
        record = struct.pack("<2sHQIIIIIIIIIIIIIIIHH", b"nk", flags, 0, 0, parent, len(below), 0, index, NONE, len(held),
                             listed, NONE, NONE, 0, 0, 0, 0, 0, len(encoded), 0) + encoded
        self.cells[at + 4:at + 4 + len(record)] = record
        return at

    def bytes(self, tree):
        root = self.key("ROOT", *tree, flags=0x2C)
        size = (len(self.cells) + 4095) // 4096 * 4096
        rest = size - len(self.cells)
        if rest:
            self.cells += struct.pack("<i", rest) + bytes(rest - 4)
        self.cells[:32] = struct.pack("<4sIIIIQI", b"hbin", 0, size, 0, 0, 0, 0)
        head = struct.pack("<4sIIQIIIIIII", b"regf", 1, 1, 0, 1, 5, 0, 1, root, size, 1).ljust(508, b"\0")
        check = 0
        for (word,) in struct.iter_unpack("<I", head):
            check ^= word
        return (head + struct.pack("<I", check)).ljust(4096, b"\0") + bytes(self.cells)


def hive_of(export):
    """The SYSTEM hive that an export could have been made of."""
    tree = ({}, {})
    for path, values in read_export(export).items():
        parts = path.split("\\")
        if [part.upper() for part in parts[:2]] != ["HKEY_LOCAL_MACHINE", "SYSTEM"]:
            continue
        at = tree
        for part in parts[2:]:
            name = "ControlSet001" if part == "CurrentControlSet" else part
            at = at[0].setdefault(next((k for k in at[0] if k.upper() == name.upper()), name), ({}, {}))
        at[1].update(values)
    tree[0]["Select"] = ({}, {"Current": (4, struct.pack("<I", 1))})
    return Hive().bytes(tree)
