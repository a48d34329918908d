"""Makes 10,000 random events as the monitor writes them, has velmox-events make JSON of them, and compares each field.

round_trip.py PROGRAM [SEED]
"""
import json
import random
import subprocess
import sys
from datetime import datetime, timezone
from xml.sax.saxutils import escape

COUNT = 10000
# What XML, JSON, terminals and the grammar of <data> treat in a way of its own.
PIECES = ['"', "'", "&", "<", ">", "\\", "/", "\n", "\r\n", "\r", "\t", "{", "}", "[", "]", ",", ":", "&amp;", "]]>",
          "\\x01", "\\u0041", "\u2028", "\ufeff", "\u00e4", "\u6f22", "\U0001f600", "\x7f", "\x85", "%s", "</event>",
          "</data>", "<stream>", "<!--", "&#10;", "plain", "value 42", '"\ndata="', '"\npid=7', '"\nkey_path="',
          '"\nregistry_type="SetValue"\nkey_path="', '"\ndata_type="REG_DWORD"\ndata="1', '"\ndata_type="REG_X"']
OPERATIONS = {"SetValue": "change", "CreateKey": "creation", "OpenKey": "access", "CloseKey": "access",
              "QueryKey": "access", "DeleteKey": "deletion", "RenameKey": "change", "UNKNOWN": None}
HIVES = {"HKLM": "HKLM", "HKU": "HKU", "HKCU": "HKCU", "HKCC": "HKCC", "\\REGISTRY\\MACHINE": "HKLM",
         "\\Registry\\User": "HKU", "\\REGISTRY\\A": None}

random.seed(int(sys.argv[2]) if len(sys.argv) > 2 else 18)


def text(most, without=()):
    pieces = [piece for piece in PIECES if not any(part in piece for part in without)]
    return "".join(random.choices(pieces, k=random.randint(0, most)))


def value():
    kind = random.choice(["REG_SZ", "REG_EXPAND_SZ", "REG_MULTI_SZ", "REG_DWORD", "REG_QWORD", "REG_BINARY", "REG_NONE"])
    if kind in ("REG_SZ", "REG_EXPAND_SZ"):
        # A string may forge all that would stand in front of it.
        data = text(8) + random.choice(["", '"\ndata_type="REG_SZ"\ndata="x'])
        return kind, data, [data]
    if kind == "REG_MULTI_SZ":
        strings = [text(4, without="\n") + "." for _ in range(random.randint(0, 4))]
        return kind, "\n".join(strings), strings
    if kind == "REG_DWORD":
        number = random.getrandbits(32)
        return kind, f"0x{number:08x}({number})", [str(number)]
    if kind == "REG_QWORD":
        number = random.getrandbits(64)
        signed = number - (1 << 64) if number >> 63 else number
        return kind, f"0x{number:016x}({signed})", [str(signed)]
    return kind, "", []


def without_empty(fields):
    """Leaves out what is None, an empty text or list, or an object of which nothing is left."""
    left = {}
    for name, field in fields.items():
        field = without_empty(field) if isinstance(field, dict) else field
        if field is not None and field not in ("", [], {}):
            left[name] = field
    return left


def event():
    """The event as the stream has it, and the JSON that is to come of it."""
    second, fraction = random.randint(0, 2 ** 31), random.randint(0, 999)
    stanza, index = text(3, without="\n\t\r"), text(3)
    kind, data, strings = value()
    root = random.choice(list(HIVES))
    keys = "\\".join([text(4, without="\\") + "k" for _ in range(random.randint(1, 3))])
    name = text(4, without="\\")
    path = f"{root}\\{keys}\\{name}"
    is_baseline = random.random() < 0.3
    operation = "baseline" if is_baseline else random.choice(list(OPERATIONS))
    has_value = operation in ("SetValue", "baseline") or \
        (operation in ("QueryKey", "DeleteKey") and kind != "REG_NONE")
    key = keys if has_value else f"{keys}\\{name}"
    wanted = {
        "@timestamp": datetime.fromtimestamp(second, timezone.utc).strftime("%Y-%m-%dT%H:%M:%S") + f".{fraction:03}Z",
        "ecs": {"version": "8.11.0"},
        "event": {"kind": "state" if is_baseline else "event", "category": ["registry"], "action": operation},
        "registry": {"path": path, "hive": HIVES[root], "key": key if HIVES[root] else f"{root}\\{key}",
                     "value": name if has_value else None, "data": {"type": kind, "strings": strings}},
        "labels": {"stanza": stanza, "index": index},
    }
    type_of_event = "info" if is_baseline else OPERATIONS[operation]
    wanted["event"]["type"] = [type_of_event] if type_of_event else None
    lines = [f"11/21/2026 06:51:16.{fraction:03}"]
    if not is_baseline:
        code, message = random.choice([(0, "Success."), (-1073741772, text(5)), (259, text(2))])
        pid = random.randint(0, 99999)
        image = random.choice(["N/A", "c:\\windows\\" + text(3, without="\\/") + ".exe"])
        if '"\nregistry_type=' in image or '"\npid=' in message:
            return event()
        lines += [f'event_status="({code}){message}"', f"pid={pid}", f'process_image="{image}"']
        wanted["event"] |= {"outcome": "failure" if code < 0 else "success", "code": str(code)}
        wanted["message"] = message
        wanted["process"] = {"pid": pid}
        if image != "N/A":
            wanted["process"] |= {"executable": image, "name": image[len("c:\\windows\\"):]}
    lines += [f'registry_type="{operation}"', f'key_path="{path}"', f'data_type="{kind}"', f'data="{data}"']
    quoted = {'"': "&quot;", "'": "&apos;"}
    stanza_text = f' stanza="{escape(stanza, quoted)}"' if stanza else ""
    index_text = f"<index>{escape(index, quoted)}</index>\n" if index else ""
    written = f"<event{stanza_text}>\n<time>{second}</time>\n<data>{escape(chr(10).join(lines), quoted)}</data>\n" \
              f"<source>WinRegistry</source>\n<sourcetype>WinRegistry</sourcetype>\n{index_text}</event>\n"
    one_empty_string = strings == [""]
    wanted = without_empty(wanted)
    if one_empty_string:
        wanted["registry"]["data"]["strings"] = [""]
    return written, wanted


events = [event() for _ in range(COUNT)]
stream = "<stream>\n" + "".join(written for written, _ in events) + "</stream>\n"
run = subprocess.run([sys.argv[1], "json"], input=stream.replace("\n", "\r\n").encode(), stdout=subprocess.PIPE,
                     check=True)
lines = run.stdout.decode().split("\n")
if len(lines) != COUNT + 1 or lines[-1] != "":
    sys.exit(f"{len(lines) - 1} lines for {COUNT} events")
for line, (written, wanted) in zip(lines, events):
    if json.loads(line) != wanted:
        sys.exit(f"{written}\n{line}\n{json.dumps(wanted)}")
