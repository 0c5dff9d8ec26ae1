"""There and back: everything on volumes that other tools wrote, marked, saved, marked again by the next start."""

import os
import pathlib
import re

import templates
from marking import save, take_default_sectors
from robot import MAIN, TEMPLATES, Tool, check_equal, shell, wait

# The letters of the sample machine with one more disk behind the others; sdg, without a table, gets none.
ROOTS = {"C": "/srv", "G": "/mnt/volume", "O": "/mnt/2", "P": "/mnt/3", "Q": "/mnt/4"}
NAMES = ["README.txt", "BOOTX64.efi", "readme2.EXE", "lower.low", "UPPER.UPP", "Mixed Case and long.txt", "ПРИКАЗ.DOC",
         "приказ2.doc", "Приказ о проверке.txt", "old long name of a deleted file.doc", "one more long name.doc",
         "behind the orphan.doc", "FOOXBAR.TXT", "FOX.XAB", "EFI/boot/Loader.efi", "Каталог/ОТЧЁТ.txt",
         "Program Files/Readme.txt", "naïve façade.txt", "日本語.txt"]
# What an old system leaves behind that renames files, or writes entries, without knowing long names; blanks inside of names.
ORPHAN = bytes([0x42, *b"o\0r\0p\0h\0a\0", 0x0F, 0, 0x55, *b"n\0 \0n\0a\0m\0e\0", 0, 0, *b"s\0.\0"])
DAMAGE = {b"OLDLON~1DOC": b"NEW     TXT", b"ONEMOR~1DOC": ORPHAN, b"FOOXBAR TXT": b"FOO BAR TXT",
          b"FOX     XAB": b"FOX      AB"}


def make_foreign_volumes():
    """One more disk with volumes that mtools and the kernel have written, and mounts of every kind."""
    shell("modprobe scsi_debug dev_size_mb=112; modprobe overlay; echo - - - >/sys/class/scsi_host/host1/scan")
    wait(lambda: os.path.exists("/dev/sdh"), "the disk")
    shell("printf '%s\n' 2048,16M,6 ,40M,c ,12M,7 ,20M,83 | sfdisk -q /dev/sdh; mkfs.fat -F 16 /dev/sdh1; "
          "mkfs.fat -F 32 -s 1 /dev/sdh2; mkntfs -q -Q /dev/sdh3; mke2fs -q -t ext4 /dev/sdh4; mke2fs -q -t ext2 -F /dev/sdg")
    for number, name in enumerate(NAMES):
        file = pathlib.Path("/tmp/names", name)
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(bytes(number))
    pathlib.Path("/root/.mtoolsrc").write_text("default_codepage=866\n")
    for volume in ("/dev/sdh1", "/dev/sdh2"):
        shell(f"cd /tmp/names && mcopy -s -i {volume} * :: 2>&1 && sync")
        with open(volume, "r+b") as device:
            data = device.read(1 << 23)
            for found, put in DAMAGE.items():
                check_equal((data.count(found), data.find(found) % 32), (1, 0), f"{found} on {volume}")
                device.seek(data.find(found))
                device.write(put)
    for number, options in ((2, "-t vfat -o codepage=866,utf8"), (3, "-t ntfs-3g"), (4, "")):
        shell(f"mkdir -p /mnt/{number}; mount {options} /dev/sdh{number} /mnt/{number}")
    shell("cp -r /tmp/names/. /mnt/3; mkdir /mnt/4/part; cp -r /tmp/names /mnt/4/part")
    for name in (b"two\nlines", b"not utf-8 \xe9\xff", b"tab\tand \\040"):
        pathlib.Path("/mnt/4/part", os.fsdecode(name)).write_bytes(name)
    # A container's overlay, a bind mount of the same device, an image mounted through FUSE.
    shell("mkdir -p /mnt/volume /mnt/container /srv/image $(seq -f /mnt/layer%g 40); truncate -s 2M /root/image; "
          "mount -t overlay overlay -o lowerdir=$(seq -f /mnt/layer%g -s : 40) /mnt/container; "
          "mkntfs -q -Q -F /root/image 2>/dev/null; ntfs-3g /root/image /srv/image; touch /srv/image/inside; "
          "mount --bind /srv/files/EFI '/srv/files/empty directory'; "
          "mount -t vfat -o shortname=lower,codepage=866,utf8 /dev/sdh1 /mnt/volume")


def files_below(root):
    """Path, as bytes, and size of every file below a directory; without what is mounted there."""
    found = shell(f"find {root} -xdev -path '/srv/files/empty directory' -prune -o -type f -printf '%s %p\\0'")
    return [(os.fsencode(path), int(size)) for size, path in (line.split(" ", 1) for line in found.split("\0")[:-1])]


def record(letter, root, path):
    """How the firmware names a file; None when it cannot."""
    below = path[len(root):] if letter != "C" else path
    if letter in "CQ":
        return f"{letter}:".encode() + below
    try:
        below.decode().encode("cp866")
    except UnicodeEncodeError:
        return None
    if letter == "P":
        return b"P:" + below.decode().replace("/", "\\").encode("cp866")
    # Blanks are dropped, and an extension that begins with one is none.
    short = re.sub(rb"\. .*$", b"", templates.short_names(root, below[1:].decode()))
    return f"{letter}:\\".encode() + short.replace(b" ", b"")


def round_trip():
    """Whatever other tools wrote is saved, marked again and saved as the same bytes; what the board cannot read is told"""
    make_foreign_volumes()
    files = [(record(letter, root, path), size) for letter, root in ROOTS.items() for path, size in files_below(root)]
    sizes, readable = [size for _, size in files], [size for name, size in files if name is not None]
    # The last of them is seen only in part from now on, so the tool mounts it itself, like the two before.
    shell("mkdir /mnt/seen; mount --bind /mnt/4/part /mnt/seen; umount /mnt/2 /mnt/3 /mnt/4")
    saved = []
    for start, marked in ((1, sizes), (2, readable)):
        tool = Tool(TRACE_PELVA="0")
        tool.start()
        if start == 1:
            for path in (["/dev/sdb1", "srv"], *([f"/dev/sdh{number}"] for number in (1, 2, 3, 4))):
                tool.mark(*path)
        check_equal([tool.find(name=f"total_files_{name}").text for name in ("selected", "size")],
                    [str(len(marked)), f"{sum(marked)} bytes"], f"totals of start {start}")
        save(tool, "files")
        told = f"{len(sizes) - len(readable)} marked files have no name that the board can read. They are not in the template."
        check_equal(bool(tool.find(window=MAIN, text=told)), start == 1, "told what was left out")
        if start == 1:
            take_default_sectors(tool)
        tool.push("tab_sectors")
        save(tool, "sectors")
        tool.close()
        tool.wait_end()
        saved.append([templates.read(kind, TEMPLATES) for kind in (templates.FILES, templates.SECTORS)])
    names = saved[0][0][0]
    records = [names[start:start + 256].split(b"\0")[0] for start in range(1024, len(names), 256)]
    check_equal(sorted(records), sorted({name for name, _ in files} - {None}), "records")
    check_equal(saved[0][0], templates.expected(templates.FILES, records, b"C:/boot/pelva/"), "file template")
    assert saved[1] == saved[0], "the second pairs differ from the first"
