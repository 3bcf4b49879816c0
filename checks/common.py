"""What the checks share: the files of the tree, and planting a bad input to prove that a check can fail."""
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


def compile_driver_object(root, name, text):
    """Compiles `text` as the driver's release object `name` of the tree at `root`; for planted inputs."""
    folder = Path(root) / "build/release/src/CMakeFiles/driver.dir"
    plant(root, {f"src/{name}": text})
    target = folder / f"{name}.o"
    target.parent.mkdir(parents=True, exist_ok=True)
    run("g++", "-std=c++20", "-O2", "-fno-exceptions", "-fno-rtti", "-fno-threadsafe-statics", "-c",
        str(Path(root) / "src" / name), "-o", str(target))
    return target


def driver_objects(root):
    """The driver's release objects, one per source; a source without an object is an error."""
    folder = Path(root) / "build/release/src/CMakeFiles/driver.dir"
    objects = []
    for source in code_files(Path(root), "src"):
        if source.suffix != ".cpp":
            continue
        target = folder / (str(source.relative_to(Path(root) / "src")) + ".o")
        if not target.exists():
            raise RuntimeError(f"{source}: has no release object")
        objects.append(target)
    if not objects:
        raise RuntimeError("the driver has no sources")
    return objects
