"""The content of a disk that misbehaves as told: a plugin of nbdkit, started by `disk attach --faulty`.

The file /etc/macroot/disks/NAME says how, and is looked at before every request. Directives, one a line; a SECTOR has
512 bytes, a range is FIRST-LAST:

  bad SECTOR|RANGE...    reads that touch one of these fail
  fail-writes SECTOR     writes that reach so far fail
  full SECTOR            writes that reach so far find no space
  lie SECTOR             what is written to this sector is taken and kept, but with its first byte changed
  hold-reads SECTOR      reads that reach so far wait until the directive is gone, and what comes after them, too
  hold-writes SECTOR     the same for writes
  slow MILLISECONDS      every read and write takes that long
  gone                   every request fails

A directive of another name makes every request fail, so that a misspelt one shows.
"""
import errno
import io
import os
import time

import nbdkit  # pylint: disable=import-error

API_VERSION = 2
SECTOR = 512


class Behaviour:
    """What the file said when it was read last."""

    def __init__(self, path):
        self.path = path
        self.read_as = None
        self.bad = []
        self.limits = {}
        self.pause = 0
        self.gone = False

    def refresh(self):
        """Looks at the file again if it has changed."""
        try:
            status = os.stat(self.path)
            state = (status.st_ino, status.st_mtime_ns, status.st_size)
            if state != self.read_as:
                self.parse()
                self.read_as = state
        except FileNotFoundError:
            self.read_as, self.bad, self.limits, self.pause, self.gone = None, [], {}, 0, False
        return self

    def parse(self):
        """Reads the file."""
        bad, limits, pause, gone = [], {}, 0, False
        with io.open(self.path, encoding='ascii') as file:
            for line in file:
                words = line.split()
                if not words:
                    continue
                if words[0] == 'bad':
                    for word in words[1:]:
                        first, _, last = word.partition('-')
                        bad.append((int(first) * SECTOR, (int(last or first) + 1) * SECTOR))
                elif words[0] == 'slow':
                    pause = int(words[1]) / 1000
                elif words[0] in ('fail-writes', 'full', 'lie', 'hold-reads', 'hold-writes'):
                    limits[words[0]] = int(words[1]) * SECTOR
                else:
                    if words[0] != 'gone':
                        nbdkit.debug(f'unknown directive {words[0]}')
                    gone = True
        self.bad, self.limits, self.pause, self.gone = bad, limits, pause, gone

    def reaches(self, directive, end):
        """Whether a request that ends there reaches what the directive names."""
        return directive in self.limits and end > self.limits[directive]


SETTINGS = {}


def config(key, value):
    """Arguments: `file` and `behaviour`."""
    SETTINGS[key] = value


def open(readonly):  # pylint: disable=redefined-builtin
    """One client's view."""
    return {'file': os.open(SETTINGS['file'], os.O_RDONLY if readonly else os.O_RDWR),
            'behaviour': Behaviour(SETTINGS['behaviour'])}


def get_size(disk):
    """In bytes."""
    return os.fstat(disk['file']).st_size


def fail(number):
    """The request fails with that error."""
    nbdkit.set_error(number)
    raise OSError(number, os.strerror(number))


def settle(disk, hold, end):
    """Waits as long as the request is to wait; the behaviour that then holds for it."""
    behaviour = disk['behaviour'].refresh()
    while behaviour.reaches(hold, end) and not behaviour.gone:
        time.sleep(0.01)
        behaviour.refresh()
    if behaviour.gone:
        fail(errno.EIO)
    if end > 0:
        time.sleep(behaviour.pause)
    return behaviour


def pread(disk, buffer, offset, _flags):
    """One read."""
    end = offset + len(buffer)
    behaviour = settle(disk, 'hold-reads', end)
    if any(first < end and offset < last for first, last in behaviour.bad):
        fail(errno.EIO)
    os.preadv(disk['file'], [buffer], offset)


def pwrite(disk, buffer, offset, _flags):
    """One write."""
    end = offset + len(buffer)
    behaviour = settle(disk, 'hold-writes', end)
    for directive, number in ('fail-writes', errno.EIO), ('full', errno.ENOSPC):
        if behaviour.reaches(directive, end):
            fail(number)
    lie = behaviour.limits.get('lie')
    if lie is not None and offset <= lie < end:
        buffer = bytearray(buffer)
        buffer[lie - offset] ^= 0xFF
    os.pwrite(disk['file'], buffer, offset)


def flush(disk, _flags):
    """Everything is in memory already; a disk that is gone says so."""
    settle(disk, 'none', 0)
