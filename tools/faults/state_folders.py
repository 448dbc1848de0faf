"""State folders of the simulated modem, as the runs of a check begin with them and leave them."""

import os
import pathlib
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
RELEASE = ROOT / "build/release"
COMMANDS = ROOT / "tests/commands"

PASSING = ("lock", "tmp")  # what is in a folder beside the state


def read(path):
    return pathlib.Path(path).read_bytes()


def tree_of(path):
    """All that the folder holds but folders, with what tells a replaced file."""
    found, folders = {}, [path]
    while folders:
        with os.scandir(folders.pop()) as entries:
            for entry in entries:
                name = entry.path[len(path) + 1:]
                if entry.is_dir(follow_symlinks=False):
                    folders.append(entry.path)
                elif name.split("/")[0] not in PASSING:
                    found[name] = entry.inode()
    return found


class Master:
    """The state that every run begins with."""

    def __init__(self, path):
        self.path = path
        subprocess.run([RELEASE / "tovi", "4", "1", "0", "550"], check=True, stdout=subprocess.DEVNULL,
                       env={"TOVI_STATE": path, "TOVI_LOG": "/dev/null"})
        shutil.copytree(COMMANDS / "state", path, dirs_exist_ok=True)
        self.files = tree_of(path)

    def copy(self, to):
        """Files are replaced whole, so links will do."""
        for folder, _, files in os.walk(self.path):
            place = to + folder[len(self.path):]
            os.mkdir(place)
            for name in files:
                if name not in PASSING:
                    os.link(os.path.join(folder, name), os.path.join(place, name))

    def changes(self, path):
        """The files in `path` that differ, None for one that is gone."""
        now = tree_of(path)
        changed = {name: None for name in self.files if name not in now}
        for name, inode in now.items():
            if inode != self.files.get(name):
                place = os.path.join(path, name)
                content = read(place) if os.path.isfile(place) else "no file"
                if name not in self.files or content != read(os.path.join(self.path, name)):
                    changed[name] = content
        return changed
