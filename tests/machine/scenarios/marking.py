"""From the mark to the template: what a user marks, saves and reports."""

import glob
import os
import shutil

import templates
from robot import SHARE, TEMPLATES, Tool, check, check_equal, wait

OUT = f"{SHARE}/out"
DRIVES = {"sdb": 0x80, "md0": 0x81, "sda": 0x82, "sdc": 0x83, "sdg": 0x84}
# In the order of the rows: a partition table's sector, then what lies in it.
BOOT_SECTORS = ["sdb1", "md0p1", "md0p2", "sda1", "sda2", "sda5", "sda6", "sda3", "sdc2", "sdc3"]


def volume(name):
    """Where the tool has mounted a partition."""
    return glob.glob(f"/tmp/tarnel*/{name}")[0]


def all_sectors():
    records = []
    for disk, drive in DRIVES.items():
        records.append((drive, 0))
        for name in BOOT_SECTORS:
            if name.startswith(disk):
                with open(f"/sys/class/block/{name}/start", encoding="ascii") as start:
                    records.append((drive, int(start.read())))
    return records


def save(tool, page, count):
    tool.click(tool.look().widget(f"{page}_save"))
    tool.answer("Confirm", "Do you really want to overwrite existing template?", "Yes")
    check_equal(tool.look().widget(f"total_{page}_selected").text, str(count), f"number of {page}")


def demonstration():
    """A kernel on ext4, a long-named file on FAT32 and all boot sectors are marked, saved and reported"""
    os.makedirs(OUT, exist_ok=True)
    os.makedirs("/root/.local/share", exist_ok=True)  # where the file chooser remembers what was used
    tool = Tool()
    tool.start()
    kernel = os.path.basename(glob.glob("/boot/vmlinuz-*")[0])
    tool.expand("/dev/sdb1")
    tool.expand("/dev/sdb1", "boot")
    tool.mark("filebrowser", "/dev/sdb1", "boot", kernel)
    path = ["Program Files", "Trusted Loader", "loader configuration.ini"]
    for depth in range(len(path)):
        tool.expand("/dev/sda3", *path[:depth])
    tool.mark("filebrowser", "/dev/sda3", *path)
    tool.picture("out/files")
    size = os.path.getsize(f"/boot/{kernel}") + os.path.getsize("/".join([volume("sda3"), *path]))
    check_equal(tool.look().widget("total_files_size").text, f"{size} bytes", "size of the marked files")
    save(tool, "files", 2)

    tool.click(tool.look().widget("tab_sectors"))
    wait(lambda: tool.look().widget("sectors_default"), "the page of sectors")
    tool.click(tool.look().widget("sectors_default"))
    tool.answer("Confirm", "Do you really want to set default selection?", "Yes")
    save(tool, "sectors", len(all_sectors()))
    for row in tool.look().children("diskbrowser", ""):
        tool.expand(row.texts[0], tree="diskbrowser")
    tool.picture("out/sectors")

    tool.click(tool.look().widget("report_button"))
    tool.wait_window("Report")
    tool.picture("out/report")
    tool.click(tool.look().widget("report_save_button"))
    tool.wait_window("Save report")
    tool.press("Return")  # the name and the folder that it proposes
    tool.wait_closed("Save report")
    tool.press("Escape" if tool.look().window("Save report") else "alt+F4")
    tool.wait_closed("Report")
    tool.quit()

    shutil.copy("/root/report.rtf", OUT)
    for file in glob.glob(f"{TEMPLATES}/*"):
        shutil.copy(file, OUT)
    with open(f"{OUT}/listing.txt", "w", encoding="utf-8") as file:
        file.write(templates.listing(TEMPLATES))


def open_page(tool, page):
    tool.click(tool.look().widget(f"tab_{page}"))
    wait(lambda: tool.look().widget(f"{page}_save"), f"the page of {page}")


def expected_report(files, sectors):
    """The document for these files with their sizes and these sectors, in code page 1251."""
    lines = ["{\\rtf1\\ansi\\ansicpg1251\\deff0\\deflang1049\\plain {", "{\\b Report}\\par", "{\\i File list:}\\par"]
    for name, size in files:
        name = name.replace("\\", "\\\\")
        lines.append(f"File: {name}, file size: {size}\\line")
    lines.append(f"{{\\b Total files: {len(files)}, total size: {sum(size for _, size in files)}}}\\par")
    lines.append("{\\i Sector list:}\\par")
    lines += [f"Sector: {name}, sector size: 512\\line" for name in sectors]
    lines.append(f"{{\\b Total sectors: {len(sectors)}, total size: {512 * len(sectors)}}}\\par")
    return ("\n".join(lines) + "\n}}\n").encode("cp1251")


def whole_road():
    """Files on every kind of partition and all sectors are marked, saved, reported, and marked again by the next start"""
    os.makedirs("/root/.local/share", exist_ok=True)
    removed = "/srv/files/отчёт.txt"
    # Partition, letter, and what to mark: in the order of the tree.
    marks = [("sdb1", "C", "srv/files/отчёт.txt"), ("md0p1", "D", "long name of a report.txt"),
             ("md0p2", "G", "Отчёт о проверке.txt"), ("sda1", "E", "Program Files"), ("sda3", "K", "ПРИКАЗ.DOC"),
             ("sda5", "H", "Отчёт о проверке.txt"), ("sda6", "I", "Отчёт о проверке.txt"), ("sdc3", "M", "EFI")]
    inside = {"Program Files": "/Trusted Loader/loader configuration.ini", "EFI": "/BOOT/BOOTX64.EFI"}
    tool = Tool()
    tool.start()
    records, rows = [], []
    for name, letter, path in marks:
        steps = path.split("/")
        for depth in range(len(steps)):
            tool.expand(f"/dev/{name}", *steps[:depth])
        tool.mark("filebrowser", f"/dev/{name}", *steps)
        path += inside.get(path, "")
        fat, ntfs = name in ("md0p2", "sda1", "sda3", "sdc3"), name == "sda6"
        root = "/" if name == "sdb1" else volume(name)
        separator = "\\" if fat or ntfs else "/"
        long_names = path.replace("/", separator).encode("cp866" if ntfs else "utf-8")
        records.append(f"{letter}:{separator}".encode() + (templates.short_names(root, path) if fat else long_names))
        rows.append((f"{name}:{separator}" + path.replace("/", separator), os.path.getsize(f"{root}/{path}")))
        tool.click(tool.show("filebrowser", f"/dev/{name}"))
        tool.press("minus")  # folds the partition, so that the next one is near
    tool.picture("files")
    save(tool, "files", len(records))
    open_page(tool, "sectors")
    tool.click(tool.look().widget("sectors_default"))
    tool.answer("Confirm", "Do you really want to set default selection?", "Yes")
    save(tool, "sectors", len(all_sectors()))
    tool.click(tool.look().widget("report_button"))
    tool.wait_window("Report")
    shown = {tree: [row.texts for row in tool.look().rows if row.tree == tree] for tree in ("file_report", "sector_report")}
    check_equal([text[0] for text in shown["file_report"]], [name for name, _ in rows], "files of the report")
    check_equal(len(shown["sector_report"]), len(all_sectors()), "number of sectors in the report")
    tool.click(tool.look().widget("report_save_button"))
    tool.wait_window("Save report")
    tool.enter("/root/road.rtf")
    tool.wait_closed("Save report")
    tool.click(tool.look().widget("report_close_button"))
    tool.wait_closed("Report")
    tool.quit()
    with open("/root/road.rtf", "rb") as report:
        check_equal(report.read(), expected_report(rows, [text[0] for text in shown["sector_report"]]), "report")
    sectors = templates.expected(templates.SECTORS, all_sectors(), "C:/boot/pelva/")
    check_equal(templates.read(templates.FILES, TEMPLATES), templates.expected(templates.FILES, records, "C:/boot/pelva/"), "files")
    check_equal(templates.read(templates.SECTORS, TEMPLATES), sectors, "sectors")

    os.rename(removed, "/root/removed")
    tool = Tool()
    look = tool.wait_window("Confirm")
    check(any(removed in text.splitlines() for text in look.texts("Confirm")), f"{removed} is not listed as missing")
    tool.picture("missing")
    tool.answer("Confirm", "The following files are missing. Delete these files from a template?", "Yes")
    tool.start()
    os.rename("/root/removed", removed)
    check_equal(tool.look().widget("total_files_selected").text, str(len(records) - 1), "files marked again")
    tool.picture("again")
    open_page(tool, "sectors")
    check_equal(tool.look().widget("total_sectors_selected").text, str(len(all_sectors())), "sectors marked again")
    tool.quit()
    check_equal(templates.read(templates.FILES, TEMPLATES),
                templates.expected(templates.FILES, records[1:], "C:/boot/pelva/"), "files without the missing one")
    check_equal(templates.read(templates.SECTORS, TEMPLATES), sectors, "sectors")


SCENARIOS = [demonstration, whole_road]
