"""Power cuts: what a save writes is recorded on its way to the disk, and each beginning of that is a disk to start from."""

import ctypes
import os
import pathlib
import struct

import templates
from robot import SHARE, check_equal, shell

PAIR = ctypes.CDLL(f"{SHARE}/pair.so")
LIBC = ctypes.CDLL(None, use_errno=True)
DISK, LOG, RECORDED = "/dev/ram0", "/dev/ram1", "/dev/mapper/recorded"
PLACE = "/mnt/cut"
SIZE = 4 << 20
MARK = 8
# File systems by the command that makes them, how they are mounted, and what a start does to them first.
SYSTEMS = {"FAT16": ("mkfs.fat -F 16 -s 1", b"vfat", ""), "FAT32": ("mkfs.fat -F 32 -s 1", b"vfat", ""),
           "ext2": ("mke2fs -q -t ext2", b"ext2", "e2fsck -y"), "ext4": ("mke2fs -q -t ext4", b"ext4", "")}
# The template directory: whether it is older than the mount, how full it is of other files, how many saves came before.
DIRECTORIES = {"old": (True, 0, 0), "new": (False, 0, 0), "old, second save": (True, 0, 1), "new, second save": (False, 0, 1),
               "full, second save": (True, 40, 1)}


def mount(device, kind):
    if LIBC.mount(device.encode(), PLACE.encode(), kind, 0, None) != 0:
        raise OSError(ctypes.get_errno(), f"mount {device}")


def unmount():
    if LIBC.umount(PLACE.encode()) != 0:
        raise OSError(ctypes.get_errno(), "umount")


def save(number):
    return PAIR.save(f"{PLACE}/pelva".encode(), 3 + number // 2, ord("0") + number) & 0xFF


def found():
    """The number of the save whose pair is in use; -1 without one, and what is found instead when it is none."""
    try:
        pair = templates.read(templates.FILES, f"{PLACE}/pelva")
    except FileNotFoundError:
        return -1 if not any(os.path.exists(f"{PLACE}/pelva/bootfile.{end}") for end in ("nam", "chk")) else "half a pair"
    except OSError as error:
        return str(error)
    for number in range(4):
        if pair == templates.expected(templates.FILES, [bytes([ord("0") + number]) * 256] * (3 + number // 2), "D:\\pelva\\"):
            return number
    return [(len(half), half[1024:1025]) for half in pair]


def recorded():
    """The log of device-mapper's log-writes (admin-guide/device-mapper/log-writes.rst): flags, sector, bytes."""
    with open(LOG, "rb") as log:
        _, _, entries, unit = struct.unpack("<QQQI", log.read(28))
        place = unit
        for _ in range(entries):
            log.seek(place)
            sector, sectors, flags, length = struct.unpack("<QQQQ", log.read(32))
            text = log.read(length) if flags & MARK else b""
            log.seek(place + unit)
            data = log.read(sectors * unit) if not flags & 4 else b""
            place += unit + len(data)
            yield flags, sector * unit, data or text


def fill_directory(files, before):
    os.mkdir(f"{PLACE}/pelva")
    for number in range(files):
        pathlib.Path(f"{PLACE}/pelva/another file {number}").write_bytes(b"other")
    if before:
        save(0)
    for number in range(0, files, 2):  # entries of a new file go where they fit
        os.remove(f"{PLACE}/pelva/another file {number}")


def record(system, directory):
    """Saves on a volume of its own; the disk before that, and what was written then."""
    make, kind, _ = SYSTEMS[system]
    older, files, before = DIRECTORIES[directory]
    pathlib.Path(DISK).write_bytes(bytes(SIZE))
    shell(f"{make} {DISK} {SIZE >> 10} 2>&1")
    mount(DISK, kind)
    if older:
        fill_directory(files, before)
    unmount()
    image = pathlib.Path(DISK).read_bytes()
    shell(f"dmsetup create recorded --noudevsync --table '0 {SIZE >> 9} log-writes {DISK} {LOG}' && dmsetup mknodes")
    mount(RECORDED, kind)
    if not older:
        fill_directory(files, before)
        os.sync()
        # What the disk has to be told to keep it; the sync of the parent would hide what is peculiar to a new directory.
        with open(f"{PLACE}/other", "wb") as other:
            os.fsync(other.fileno())
    shell("dmsetup message recorded 0 mark begun")
    assert save(1), "not saved"
    shell("dmsetup message recorded 0 mark saved")
    unmount()
    shell("dmsetup remove recorded --noudevsync")
    return bytearray(image), list(recorded())


def judge(image, system, allowed):
    """The next start, the volume filled with other files (what lies in free clusters shows so), and one more save."""
    _, kind, check = SYSTEMS[system]
    with open(DISK, "r+b", buffering=0) as disk:
        disk.write(image)
    if check:
        os.system(f"{check} {DISK} >/run/check 2>&1")
    mount(DISK, kind)
    PAIR.recover(f"{PLACE}/pelva".encode())
    first = found()
    try:
        with open(f"{PLACE}/fill", "wb", buffering=0) as fill:
            while fill.write(b"fill" * 4096):
                pass
    except OSError as error:
        assert error.errno == 28, error
    unmount()
    mount(DISK, kind)
    seen = [first, found()]
    os.remove(f"{PLACE}/fill")
    os.makedirs(f"{PLACE}/pelva", exist_ok=True)
    seen += [save(2), found()]
    unmount()
    mount(DISK, kind)
    seen += [found(), sorted(os.listdir(f"{PLACE}/pelva"))[-2:]]
    unmount()
    assert first in allowed and seen[1:] == [first, 1, 2, 2, seen[5]], f"{seen}, not {allowed}"


def cut():
    """Each beginning of what a save writes leaves the old template or the new one, and a volume that takes more"""
    os.makedirs(PLACE, exist_ok=True)
    shell("modprobe -a brd dm-log-writes rd_nr=2 rd_size=65536 2>/dev/null; modprobe brd rd_nr=2 rd_size=65536; modprobe dm-log-writes")
    failures = []
    for system in SYSTEMS:
        for directory, (_, _, before) in DIRECTORIES.items():
            image, writes = record(system, directory)
            allowed = set()  # nothing is asked of the time before the save
            judged = 0
            for number, (flags, place, data) in enumerate(writes):
                if flags & MARK:
                    allowed = {1} if data == b"saved" or allowed == {1} else {0 if before else -1, 1}
                elif image[place:place + len(data)] != data:
                    image[place:place + len(data)] = data
                else:
                    continue
                if not allowed:
                    continue
                judged += 1
                try:
                    judge(image, system, allowed)
                except (AssertionError, OSError) as error:
                    failures.append(f"{system}, {directory}, write {number} of {len(writes)}: {error}")
                    os.system(f"umount {PLACE} 2>/dev/null")
            print(system, directory, len(writes), judged, flush=True)
    check_equal(failures, [], "cuts")
