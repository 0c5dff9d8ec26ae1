"""Power cuts: what a save writes is recorded on its way to the disk; each beginning of that is a disk to start from."""

import ctypes
import errno
import os
import pathlib
import struct

import templates
from robot import SHARE, check_equal, shell

PAIR = ctypes.CDLL(f"{SHARE}/pair.so")
LIBC = ctypes.CDLL(None)
WRITE_BACK = "/proc/sys/vm/dirty_writeback_centisecs /proc/sys/vm/dirty_expire_centisecs"
DISK, LOG, RECORDED = "/dev/ram0", "/dev/ram1", "/dev/mapper/recorded"
PLACE, PELVA = "/mnt/cut", "/mnt/cut/pelva"
MARK = 8  # among the flags of a recorded write
# File systems by their size in KiB, the command that makes them, how they are mounted, and what a start does before.
SYSTEMS = {"FAT16": (2200, "mkfs.fat -F 16 -s 1", b"vfat", ""), "FAT32": (512, "mkfs.fat -F 32 -s 1", b"vfat", ""),
           "ext2": (512, "mke2fs -q -t ext2", b"ext2", "e2fsck -y"), "ext4": (3072, "mke2fs -q -t ext4", b"ext4", "")}
# On each: whether the template directory is older than the mount, of how many other files it is full, and how many
# saves came before.
CASES = [("FAT16", True, 0, 0), ("FAT16", False, 0, 1), ("FAT16", True, 40, 1), ("FAT32", False, 0, 0),
         ("FAT32", True, 0, 1), ("ext2", True, 40, 1), ("ext4", True, 0, 1)]


def mount(device, kind):
    assert LIBC.mount(device.encode(), PLACE.encode(), kind, 0, None) == 0, f"{device} not mounted"


def unmount():
    assert LIBC.umount(PLACE.encode()) == 0, "not unmounted"


def save(number):
    return PAIR.save(PELVA.encode(), 3 + number // 2, ord("0") + number) & 0xFF


def found():
    """The number of the save whose pair is in use; -1 without one, and what is found instead when it is none."""
    try:
        pair = templates.read(templates.FILES, PELVA)
    except FileNotFoundError:
        return -1 if not any(os.path.exists(f"{PELVA}/bootfile.{end}") for end in ("nam", "chk")) else "half a pair"
    except OSError as error:
        return str(error)
    for number in range(4):
        records = [bytes([ord("0") + number]) * 256] * (3 + number // 2)
        if pair == templates.expected(templates.FILES, records, b"D:\\pelva\\"):
            return number
    return f"neither: {[half[1024:1025] for half in pair]}"


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
    os.mkdir(PELVA)
    for number in range(files):
        pathlib.Path(f"{PELVA}/another file {number}").write_bytes(b"other")
    if before:
        save(0)
    for number in range(0, files, 2):  # entries of a new file go where they fit
        os.remove(f"{PELVA}/another file {number}")


def record(system, older, files, before):
    """Saves on a volume of its own; the disk before that, and what was written then."""
    size, make, kind, _ = SYSTEMS[system]
    pathlib.Path(DISK).write_bytes(bytes(size << 10))
    shell(f"{make} {DISK} {size} 2>&1")
    mount(DISK, kind)
    if older:
        fill_directory(files, before)
    unmount()
    image = pathlib.Path(DISK).read_bytes()[:size << 10]
    shell(f"dmsetup create recorded --noudevsync --table '0 {size << 1} log-writes {DISK} {LOG}' && dmsetup mknodes")
    mount(RECORDED, kind)
    if not older:
        fill_directory(files, before)
        os.sync()
        # Makes the disk keep it. A sync of the parent would hide what is peculiar to a new directory.
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
    _, _, kind, check = SYSTEMS[system]
    pathlib.Path(DISK).write_bytes(image)
    if check:
        os.system(f"{check} {DISK} >/run/check 2>&1")
    mount(DISK, kind)
    PAIR.recover(PELVA.encode())
    seen = [found()]
    try:
        with open(f"{PLACE}/fill", "wb", buffering=0) as fill:
            while fill.write(b"fill" * 4096):
                pass
    except OSError as error:
        assert error.errno == errno.ENOSPC, error
    unmount()
    mount(DISK, kind)
    seen.append(found())
    os.remove(f"{PLACE}/fill")
    seen += [save(2), found()]
    unmount()
    mount(DISK, kind)
    seen += [found(), [name for name in os.listdir(PELVA) if name.startswith(".gtk-tarnel")]]
    unmount()
    assert seen[0] in allowed and seen[1:] == [seen[0], 1, 2, 2, []], f"{seen}, not {allowed}"


def judge_all(system, older, files, before):
    """Yields what is wrong, for each beginning."""
    image, writes = record(system, older, files, before)
    allowed = set()  # of what lies before the save nothing is asked
    for number, (flags, place, data) in enumerate(writes):
        if data == b"begun":
            allowed = {0 if before else -1, 1}
        elif data == b"saved":
            allowed = {1}
        elif flags & MARK or image[place:place + len(data)] == data:
            continue
        if not flags & MARK:
            image[place:place + len(data)] = data
        try:
            if allowed:
                judge(image, system, allowed)
        except (AssertionError, OSError) as error:
            LIBC.umount(PLACE.encode())
            yield f"{system}, {older}, {files}, {before}, write {number} of {len(writes)}: {error}"


def cut():
    """Each beginning of what a save writes leaves the old template or the new one, and a volume that takes more"""
    os.makedirs(PLACE, exist_ok=True)
    shell("modprobe brd rd_nr=2 rd_size=32768; modprobe dm-log-writes")
    # The kernel writes back by itself all the time, and so into the middle of a save.
    usual = shell(f"cat {WRITE_BACK}").split()
    shell(f"for file in {WRITE_BACK}; do echo 1 >$file; done")
    try:
        check_equal([failure for case in CASES for failure in judge_all(*case)], [], "cuts")
    finally:
        shell(f"set {' '.join(usual)}; for file in {WRITE_BACK}; do echo $1 >$file; shift; done")
        shell(f"umount {PLACE} 2>/dev/null; dmsetup remove_all --noudevsync; rmmod dm-log-writes brd")
