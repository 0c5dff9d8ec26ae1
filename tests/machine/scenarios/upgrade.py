"""After the program: what an upgrade does to what the board checks, and who says so."""

import os
import pathlib
import re
import time

import templates
from marking import LOADER, MARKED, save
from robot import AS_USER, TEMPLATES, Tool, check_equal, output, shell, wait

KERNEL = "/".join(["", *MARKED[0][1:]])
HOOK = pathlib.Path("/etc/apt/apt.conf.d/90gtk-tarnel")
REPORT = "Отчёт о проверке.txt"
CHECK = "tarnel-list --check 2>&1; echo $?"


def save_by_hand(kind, records):
    for extension, content in zip(("nam", "chk"), templates.expected(kind, records, b"C:/boot/pelva/")):
        pathlib.Path(TEMPLATES, f"{templates.NAMES[kind]}.{extension}").write_bytes(content)


def said_by_hook(**language):
    Tool("sh", "-c", re.search('"(.*)"', HOOK.read_text(encoding="ascii"))[1], **language).wait_end()
    return output("err")


def upgraded():
    """Of files and sectors that were replaced or are gone tarnel-list, the packages and the next start tell"""
    shell("mkdir -p /mnt/sda3 /mnt/sda6; mount -t vfat -o codepage=866,utf8 /dev/sda3 /mnt/sda3; "
          "mount -t ntfs-3g /dev/sda6 /mnt/sda6; sgdisk -b /run/table /dev/sdc")
    loader, start = templates.short_names("/mnt/sda3", "/".join(LOADER)), int(shell("cat /sys/class/block/sdc3/start"))
    files = [b"C:" + KERNEL.encode(), b"K:\\" + loader, b"I:\\" + REPORT.encode("cp866")]
    save_by_hand(templates.FILES, files + [b"K:\\UPPER.TXT", b"E:\\UPPER.TXT"])  # E is not mounted
    save_by_hand(templates.SECTORS, [(0x80, 0), (0x83, 0), (0x83, start)])
    unknown = "unknown  E:\\UPPER.TXT\n"
    check_equal(shell(CHECK), f"{unknown}4\n", "nothing happened")
    check_equal(said_by_hook(), "", "what the packages say of it")
    check_equal(shell(f"{AS_USER} {CHECK}"), "tarnel-list: Only root can look at the disks\n4\n", "for a user")

    time.sleep(2.1)  # FAT keeps times in steps of two seconds
    shell(f"cp {KERNEL} {KERNEL}.new; mv {KERNEL}.new {KERNEL}; touch '/mnt/sda6/{REPORT}'; rm /mnt/sda3/UPPER.TXT; "
          f"echo new >'/mnt/sda3/{'/'.join(LOADER)}'; sgdisk -d 3 -n 3:+4M:+8M -t 3:ef00 /dev/sdc")
    names = [f"C:{KERNEL}", "K:\\" + loader.decode("cp866"), f"I:\\{REPORT}"]
    check_equal(shell(CHECK), "".join(f"changed  {name}\n" for name in names) +
                f"gone  K:\\UPPER.TXT\n{unknown}gone  0x83 {start}\n3\n", "what changed")
    check_equal(said_by_hook(), "\n  ".join([
        "4 files that the trusted-boot board checks have changed since the template was saved:", *names,
        "K:\\UPPER.TXT (gone)\n1 sector that the trusted-boot board checks no longer begins a disk or partition:",
        f"0x83 {start}\nThe board may stop the next start. See that the changes are yours, then save the template anew.\n"
    ]), "what the packages say")
    assert re.match("4 файла .* изменились", said_by_hook(LC_ALL="ru_RU.UTF-8")), output("err")

    shell("sgdisk -l /run/table /dev/sdc")
    save_by_hand(templates.FILES, files)
    os.utime(f"{TEMPLATES}/bootfile.nam", (0, 0))
    tool = Tool()
    tool.start()
    bar = {"text": "3 marked files have changed since the template was saved."}
    wait(lambda: tool.find(**bar), "the bar")
    save(tool, "files")
    wait(lambda: not tool.find(**bar), "the bar gone")
    tool.close()
    tool.wait_end()
    check_equal(shell(CHECK), "0\n", "after a new save")
