"""nbdkit plugin: a disk that writes down every write and every flush, in the order in which it took them.

    nbdkit python recording_plugin.py size=BYTES log=FILE store=FILE
"""

import os
import struct

import nbdkit

API_VERSION = 2
HEADER = struct.Struct("<cQQ")  # W write, Z zeros, F flush; offset; bytes. Behind a write its data

settings = {}
log = store = -1


def config(key, value):
    settings[key] = value


def get_ready():
    global log, store
    log = os.open(settings["log"], os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o600)
    store = os.open(settings["store"], os.O_RDWR | os.O_CREAT, 0o600)
    os.ftruncate(store, int(settings["size"]))


def thread_model():
    # One after another, so that the log has an order.
    return nbdkit.THREAD_MODEL_SERIALIZE_ALL_REQUESTS


def open(readonly):
    return 1


def get_size(handle):
    return int(settings["size"])


def can_flush(handle):
    return True


def can_fua(handle):
    return nbdkit.FUA_EMULATE


def pread(handle, buffer, offset, flags):
    data = os.pread(store, len(buffer), offset)
    buffer[:len(data)] = data


def pwrite(handle, buffer, offset, flags):
    data = bytes(buffer)
    # In one call, so that whoever looks at the length of the log sees whole entries.
    if any(data):
        os.writev(log, [HEADER.pack(b"W", offset, len(data)), data])
    else:
        os.write(log, HEADER.pack(b"Z", offset, len(data)))
    os.pwrite(store, data, offset)


def flush(handle, flags):
    os.write(log, HEADER.pack(b"F", 0, 0))
