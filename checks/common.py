"""What the checks share: the files of the tree, and planting a bad input to prove that a check can fail."""
import re
import subprocess
from pathlib import Path

CODE_FOLDERS = ("src", "platform", "sim", "lab", "tests", "fuzz", "bench", "cmake")


def code_files(root, *folders):
    """Every C++ file below the folders (all that hold code, by default), in name order."""
    for folder in folders or CODE_FOLDERS:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix in (".cpp", ".h") and path.is_file():
                yield path


def run(*command, cwd=None):
    """Standard output of a command; raises with its error text when it fails."""
    done = subprocess.run(command, cwd=cwd, capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))}: {done.stderr or done.stdout}")
    return done.stdout


def plant(root, files):
    for name, text in files.items():
        path = Path(root) / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)


DRIVER_FOLDER = "src/CMakeFiles/driver.dir"


def compile_driver_objects(root):
    """Builds the release objects of the tree at `root`, one for each source of the driver; for planted inputs."""
    build = Path(root) / "build/release"
    lines = ["rule cc", "  command = g++ -std=c++20 -O2 -fno-exceptions -fno-rtti -fno-threadsafe-statics -c $in -o $out"]
    for source in code_files(Path(root), "src"):
        if source.suffix == ".cpp":
            lines.append(f"build {DRIVER_FOLDER}/{source.relative_to(Path(root) / 'src')}.o: cc {source}")
    plant(root, {"build/release/build.ninja": "\n".join(lines) + "\n"})
    run("ninja", "-C", str(build))


def driver_objects(root, preset="release", suffix=".o"):
    """The driver's objects. Several sources may share one; a source in none of them is an error."""
    build = Path(root) / "build" / preset
    names = re.findall(rf"^({DRIVER_FOLDER}/\S+{re.escape(suffix)}): ", run("ninja", "-C", str(build), "-t", "targets", "all"), re.M)
    objects = [build / name for name in sorted(names)]
    together = "".join(path.with_suffix("").read_text() for path in objects if path.parent.name == "Unity")
    for source in code_files(Path(root), "src"):
        own = build / DRIVER_FOLDER / (str(source.relative_to(Path(root) / "src")) + suffix)
        if source.suffix == ".cpp" and own not in objects and f'"{source}"' not in together:
            raise RuntimeError(f"{source}: has no {preset} object")
    for path in objects:
        if not path.exists():
            raise RuntimeError(f"{path}: is not built")
    if not objects:
        raise RuntimeError("the driver has no sources")
    return objects
