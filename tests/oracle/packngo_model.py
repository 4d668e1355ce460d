"""Reference model of `nomsoi pack` and `nomsoi odt` acting on a package on disk.

The model is written from the documented behaviour of Pack & Go, independently of the C++ code, so
that a random package run through both must give the same module log lines (levels 0 and 1), the
same files and the same exit status. It works on the real file system: give it a scratch copy of a
package, then compare what it leaves behind with what `nomsoi` leaves behind in a second copy at the
same place.

Four layers:
  * the module, on module paths (Windows-style strings with backslashes, drive letters, UNC names);
  * the platform, which turns a module path into a native path (Z:\\ is "/", mapped drives and
    shares, rooted paths, paths relative to the working directory, a unique case-insensitive match
    where a component does not exist with the exact case), refuses names Windows refuses, does the
    file operations with Windows error numbers and, like the host's watch on it, records what was
    copied, missing and failed;
  * the shared-resource manager of the translator library, which copies the files named by
    Resource elements of the main document and view file and makes those names bare;
  * the host: full paths of the command line, the preflight walk that refuses a package (reference
    cycle, two files on one name without --force), the saves of the main document and view file
    redirected into the output directory, the journal that puts them back when something failed,
    and the exit status decided by the outcome.

Standard library only.
"""

import os
import re
import xml.etree.ElementTree as ET

S_OK = 0
E_FAIL = -0x7FFFBFFB  # 0x80004005 as a signed 32-bit value
E_ACCESSDENIED = -0x7FF8FFFB  # 0x80070005

ERROR_FILE_NOT_FOUND = 2
ERROR_PATH_NOT_FOUND = 3
ERROR_ACCESS_DENIED = 5
ERROR_SHARING_VIOLATION = 32
ERROR_BAD_NETPATH = 53
ERROR_INVALID_NAME = 123

# Exit status of nomsoi pack and odt.
EXIT_OK = 0
EXIT_FAILED = 1  # a copy or save failed
EXIT_REFUSED = 2  # refused before the module ran
EXIT_MISSING = 3  # the run finished, but referenced files could not be opened

# The list groups of the main document in the order they are walked: the Ident value, the line
# before (the last one alone has no trailing blank) and the line after.
LIST_GROUPS = (
    ("ProductList", "Info:\t Handle Product Child Nodes ... ",
     "Info:\t Handle Product Child Nodes ... Done!"),
    ("ResourceList", "Info:\t Handle Resource Child Nodes ... ",
     "Info:\t Handle Resource Child Nodes ... Done!"),
    ("ManufProd", "Info:\t Handle MP Child Nodes ... ", "Info:\t Handle MP Child Nodes ... Done!"),
    ("PlanningContext", "Info:\t Handle Context Child Nodes ...",
     "Info:\t Handle Context Child Nodes ... Done!"),
)

UNABLE_TO_OPEN = "Info:\t Unable to open Document - "
UPDATING_LINE = "Info:\t Updating the relative paths in extracted <KRTProduct>.vgxXml files..."
UPDATED_LINE = "Info:\t Updation of relative paths done..."
LIGHT_LINE = ("Info:\t Pack & Go Light Mode Requested. Pointed geometry (*.vgxXml + *.vgxGeom) "
              "will NOT be copied to SOI directory.")
MAPPING_SKIPPED_LINE = "Info:\t Generation of MappingXML skipped - Env not set"

ERROR_TEXTS = {
    2: "Error Code: File Not Found",
    5: "Error Code: Access Denied",
    1: "Error Code: File Attribute Read Only",
    6000: "Error Code: Encryption Failed",
}


# Deeper than this, the references of a package run in a cycle: the module would recurse without
# end, so such a package cannot be run (the generator then makes another one).
MAX_REFERENCE_DEPTH = 40


class ReferenceCycle(Exception):
    """The module would follow the package's references without end.

    nomsoi refuses a package whose references form a cycle before the module runs (the preflight
    below predicts that); this is raised when the module, run on a package the preflight let
    through (copies made during the run changed what a reference reaches), would recurse without
    end: such a package cannot be run at all.
    """


def code_page_encoding(code_page):
    """The Python codec of a code page of the narrow strings."""
    return {65001: "utf-8", 1252: "cp1252", 932: "cp932", 936: "gbk", 949: "cp949",
            950: "cp950"}.get(code_page, "cp%d" % code_page)


def ascii_lower(text):
    return "".join(c.lower() if "A" <= c <= "Z" else c for c in text)


def fold_case(name):
    """A file name as Windows compares it: every character upper-cased one to one."""
    return "".join(c.upper() if len(c.upper()) == 1 else c for c in name)


# --------------------------------------------------------------------------------------------
# Platform: module paths on a POSIX file system.
# --------------------------------------------------------------------------------------------


def windows_refuses_name(path):
    """True when Windows refuses the name of the path (its calls fail with error 123): a ":"
    anywhere but after a drive letter, one of <>"|?*, a control character, or a component that
    ends in "." or " " (other than "." and "..")."""
    rest = path[2:] if len(path) >= 2 and path[1] == ":" else path
    if ":" in rest:
        return True
    if any(c in '<>"|?*' or ord(c) < 32 for c in path):
        return True
    for name in re.split(r"[\\/]", path):
        if name not in ("", ".", "..") and name[-1] in ". ":
            return True
    return False


class Outcome:
    """What a run did, as the host sees it through the platform: files copied, files that could
    not be opened, copies and saves that failed."""

    def __init__(self):
        self.copied = []  # (source, target)
        self.missing = []  # module paths
        self.failed = []  # (what, source, target, Windows error or HRESULT)

    def exit_status(self):
        if self.failed:
            return EXIT_FAILED
        if self.missing:
            return EXIT_MISSING
        return EXIT_OK


class Platform:
    """Maps module paths to native ones and performs the file operations the module asks for."""

    def __init__(self, cwd, drives=None, shares=None, case_sensitive=False, code_page=65001):
        self.cwd = cwd
        self.drives = {"Z": "/"}
        for letter, directory in (drives or {}).items():
            self.drives[letter.upper()] = directory
        # "\\server\share" -> native directory; server and share names ignore letter case
        self.shares = {fold_case(prefix): directory for prefix, directory in (shares or {}).items()}
        self.case_sensitive = case_sensitive
        # The narrow strings' code page; file names on disk are UTF-8 whatever it is.
        self.encoding = code_page_encoding(code_page)
        # Saves the host sends elsewhere: [(native file, module path written instead)].
        self.redirects = []
        self.outcome = Outcome()
        # Why the host refused to run the module: "cycle", "collision", "journal" or None.
        self.refusal = None

    # Path mapping ---------------------------------------------------------------------------

    def to_native(self, path):
        """Returns (native path, 0) or (None, Windows error number).

        A name Windows refuses fails with 123 before anything else. "." components are dropped
        and ".." takes away the component before it, as Windows does before it touches the disk;
        above the root of a drive, share or rooted path ".." is dropped, above the working
        directory it is kept. A trailing separator is kept, so that "file\\" never names the
        file.
        """
        if windows_refuses_name(path):
            return None, ERROR_INVALID_NAME
        if len(path) >= 2 and path[1] == ":" and path[0].isascii() and path[0].isalpha():
            root = self.drives.get(path[0].upper())
            if root is None:
                return None, ERROR_PATH_NOT_FOUND
            rest = path[2:]
        elif len(path) >= 2 and path[0] in "\\/" and path[1] in "\\/":
            parts = re.split(r"[\\/]", path[2:])
            if len(parts) < 2 or not parts[0] or not parts[1]:
                return None, ERROR_BAD_NETPATH
            root = self.shares.get(self._share_key(parts[0], parts[1]))
            if root is None:
                return None, ERROR_BAD_NETPATH
            rest = "\\".join(parts[2:])
        elif path[:1] in ("\\", "/") and path:
            root, rest = "/", path[1:]
        else:
            root, rest = None, path
        names = []
        for name in re.split(r"[\\/]", rest):
            if name == "..":
                if names and names[-1] != "..":
                    names.pop()
                elif root is None:
                    names.append(name)
            elif name not in ("", "."):
                names.append(name)
        current = self.cwd if root is None else root
        for name in names:
            candidate = os.path.join(current, name)
            missing = not os.path.lexists(candidate)
            if missing and not self.case_sensitive and os.path.isdir(current):
                wanted = fold_case(name)
                matches = [entry for entry in os.listdir(current) if fold_case(entry) == wanted]
                if len(matches) == 1:
                    candidate = os.path.join(current, matches[0])
            current = candidate
        if names and path[-1:] in ("\\", "/"):
            current += "/"
        return current, 0

    def _share_key(self, server, share):
        return fold_case("\\\\" + server + "\\" + share)

    def identity(self, path):
        """(device, inode) of the file a module path names, or None when there is none."""
        native, _ = self.to_native(path)
        if native is None:
            return None
        try:
            status = os.stat(native)
        except OSError:
            return None
        return status.st_dev, status.st_ino

    def same_file(self, first, second):
        one = self.identity(first)
        return one is not None and one == self.identity(second)

    # File operations ------------------------------------------------------------------------

    @staticmethod
    def _read_only(native):
        return (os.stat(native).st_mode & 0o222) == 0

    def file_opens(self, path):
        """The existence test without recording anything: a regular file that opens for reading."""
        native, _ = self.to_native(path)
        if native is None:
            return False
        return os.path.isfile(native) and os.access(native, os.R_OK)

    def can_open_for_reading(self, path):
        """The existence test the module makes; a file that fails it is missing."""
        if self.file_opens(path):
            return True
        self.outcome.missing.append(path)
        return False

    def copy_file(self, src, dst):
        """CopyFileA with overwrite allowed: 0 on success, else the Windows error number.

        The outcome counts a copy of a file onto itself as copied (the file is where it belongs),
        a source that is not there as missing, anything else that fails as failed.
        """
        error = self._copy_file(src, dst)
        if error == 0 or self.same_file(src, dst):
            self.outcome.copied.append((src, dst))
        elif error in (ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND) and not self.file_opens(src):
            self.outcome.missing.append(src)
        else:
            self.outcome.failed.append(("copy", src, dst, error))
        return error

    def _copy_file(self, src, dst):
        src_native, error = self.to_native(src)
        if src_native is None:
            return error
        dst_native, error = self.to_native(dst)
        if dst_native is None:
            return error
        if not os.path.lexists(src_native):
            if os.path.isdir(os.path.dirname(src_native)):
                return ERROR_FILE_NOT_FOUND
            return ERROR_PATH_NOT_FOUND
        if os.path.isdir(src_native):
            return ERROR_ACCESS_DENIED
        if not os.path.isdir(os.path.dirname(dst_native) or "/"):
            return ERROR_PATH_NOT_FOUND
        if os.path.isdir(dst_native):
            return ERROR_ACCESS_DENIED
        if os.path.exists(dst_native) and self._read_only(dst_native):
            return ERROR_ACCESS_DENIED
        if os.path.exists(dst_native) and os.path.samefile(src_native, dst_native):
            return ERROR_SHARING_VIOLATION  # a file is never copied onto itself
        with open(src_native, "rb") as source:
            data = source.read()
        # The copy keeps the source's permission bits, plus write for its owner.
        mode = (os.stat(src_native).st_mode & 0o777) | 0o200
        if os.path.lexists(dst_native):
            os.remove(dst_native)  # written under another name and renamed over the target
        with open(dst_native, "wb") as target:
            target.write(data)
        os.chmod(dst_native, mode)
        return 0

    def open_document(self, path):
        """OpenDocument: (tree, result); tree is None when the result is negative."""
        native, error = self.to_native(path)
        if native is None or not os.path.isfile(native):
            return None, E_FAIL
        try:
            return ET.parse(native), S_OK
        except (ET.ParseError, UnicodeDecodeError, ValueError):
            return None, E_FAIL

    def _redirected(self, path):
        """Where a save of path lands: the host sends the main document's and view file's saves
        into the output directory when the input package is to stay untouched."""
        native, _ = self.to_native(path)
        if native is None:
            return path
        for original, saved_as in self.redirects:
            if os.path.exists(native) and os.path.samefile(native, original):
                return saved_as
        return path

    def save_document(self, tree, path):
        """SaveDoc: the result; nothing is written when it is negative (a failed write)."""
        if tree is None:
            return E_FAIL
        path = self._redirected(path)
        result = self._save_document(tree, path)
        if result < 0:
            self.outcome.failed.append(("save", path, path, result))
        return result

    def _save_document(self, tree, path):
        native, error = self.to_native(path)
        if native is None or not os.path.isdir(os.path.dirname(native) or "/"):
            return E_FAIL
        if os.path.isdir(native):
            return E_ACCESSDENIED
        if os.path.exists(native) and self._read_only(native):
            return E_ACCESSDENIED
        tree.write(native, encoding="UTF-8", xml_declaration=True)
        return S_OK

    def create_directories(self, path):
        native, error = self.to_native(path)
        if native is not None:
            os.makedirs(native, exist_ok=True)


# --------------------------------------------------------------------------------------------
# Shared-resource manager: Resource elements with a File attribute.
# --------------------------------------------------------------------------------------------


def _is_absolute_module_path(path):
    return (len(path) >= 2 and path[1] == ":") or path[:1] in ("\\", "/")


def _bare_name(path):
    return re.split(r"[\\/]", path)[-1]


def resource_source(file_value, document_path):
    """The file a Resource's File value names: itself when absolute, else beside the document."""
    if _is_absolute_module_path(file_value):
        return file_value
    return directory_of(document_path.replace("/", "\\")) + "\\" + file_value


def update_resources(platform, tree, document_path, soi_directory):
    """Copies each Resource File into the SOI directory and sets File to its bare name; a resource
    that could not be copied keeps its File value, one that already lies there is not copied."""
    if tree is None:
        return E_FAIL
    result = S_OK
    for element in tree.getroot().iter("Resource"):
        file_value = element.get("File")
        if not file_value:
            continue
        source = resource_source(file_value, document_path)
        name = _bare_name(file_value)
        target = soi_directory + "\\" + name
        if not platform.same_file(source, target) and platform.copy_file(source, target) != 0:
            result = E_FAIL
            continue
        element.set("File", name)
    return result


# --------------------------------------------------------------------------------------------
# The module: string rules on module paths.
# --------------------------------------------------------------------------------------------


def format_file_path(path):
    """Every "/" becomes "\\"; the length never changes."""
    return path.replace("/", "\\")


def directory_of(path):
    """The path cut before its last backslash, or "" when it holds none."""
    index = path.rfind("\\")
    return path[:index] if index >= 0 else ""


def tail_from(path, index):
    return path if index < 0 else path[index:]


def resolve_relative_path(base, rel):
    """Returns (base, rel) after one climbing step and any further ones it triggers."""
    result = directory_of(base)
    if rel.find("..\\") == 0:
        rel = rel[3:]
    if rel.find(".\\..\\") == 0:
        rel = rel[5:]
    if rel[:3] == "..\\":
        result, rel = resolve_relative_path(result, rel)
    return result, rel


def classify_reference(ref):
    if ref[:5] == ".\\..\\" or ref[:3] == "..\\":
        return "climbing"
    if ref.find(".\\") == 0:
        return "dot-relative"
    if ref.find(":") == 1:
        return "drive-absolute"
    if ref.find("\\\\") == 0:
        return "network"
    return "plain"


def _last_separator(path):
    index = path.rfind("\\")
    if index < 0:
        index = path.rfind("/")
    return index


def build_actual_path(doc_path, ref, target):
    """The path part of GetActualPath: (resolved reference, target)."""
    directory = directory_of(doc_path)
    kind = classify_reference(ref)
    if kind == "climbing":
        work, ref = resolve_relative_path(directory, ref)
        ref = work + "\\" + ref
        target += tail_from(ref, ref.rfind("\\"))
    elif kind == "dot-relative":
        target += tail_from(ref, _last_separator(ref))
        ref = directory + ref[1:]
    elif kind in ("drive-absolute", "network"):
        target += tail_from(ref, ref.rfind("\\"))
    else:
        ref = directory + "\\" + ref
        target += "\\"
        target += ref[_last_separator(ref) + 1:]
    return ref, target


def path_find_file_name(path):
    """The part after the last separator or colon that is followed by a non-separator."""
    start = 0
    for index, char in enumerate(path):
        if char in "\\/:" and index + 1 < len(path) and path[index + 1] not in "\\/":
            start = index + 1
    return path[start:]


def geometry_path_of(path, encoding="utf-8"):
    """The path less its last six characters, followed by "vgxGeom".

    A character of the narrow string is one byte of it in the code page: the cut does not look at
    what it removes, so it may split a double-byte character, whose lead byte then pairs with the
    "v" that follows.
    """
    data = path.encode(encoding, "surrogateescape")
    return (data[:-6] + b"vgxGeom").decode(encoding, "surrogateescape")


class Module:
    """One NOMSOIUtility object: its log and its list of copied product documents."""

    def __init__(self, platform):
        self.platform = platform
        self.lines = []  # (level, message)
        self.copied_xml_files = []

    def log(self, message, level=0):
        self.lines.append((level, message))

    # Copy error reporting --------------------------------------------------------------------

    def print_error(self, source, target, error):
        if error == 0:
            return
        message = ("Copying File. " + "Source Path: '" + source + "'. " + "Target Path: '" + target
                   + "'. " + ERROR_TEXTS.get(error, "Error Code: Unknown"))
        self.log("****** ERROR:\t " + message)

    # Path resolution -------------------------------------------------------------------------

    def get_actual_path(self, doc_path, ref, target):
        ref, target = build_actual_path(doc_path, ref, target)
        if self.platform.can_open_for_reading(ref):
            return 0, ref, target
        self.log(UNABLE_TO_OPEN + ref)
        return 1, ref, target

    # Child node handling ---------------------------------------------------------------------

    def handle_children_nodes(self, list_node, soi_directory, main_xml_path, odt):
        children = [child for child in list_node if child.tag == "CLitAssyGroup"]
        self.log("Info:\t Nb Child Nodes: " + str(len(children)))
        soi = format_file_path(soi_directory)
        for child in children:
            source = child.get("IsInstanceOf") or ""
            if source == "":
                continue
            target = soi
            source = format_file_path(source)
            found, source, target = self.get_actual_path(main_xml_path, source, target)
            if found == 1:
                continue
            error = self.platform.copy_file(source, target)
            self.copied_xml_files.append(target)
            self.print_error(source, target, error)
            geometry = geometry_path_of(source, self.platform.encoding)
            geometry_target = soi + tail_from(geometry, geometry.rfind("\\"))
            if self.platform.can_open_for_reading(geometry):
                error = self.platform.copy_file(geometry, geometry_target)
                self.print_error(geometry, geometry_target, error)
            else:
                self.log(UNABLE_TO_OPEN + geometry)
            if not odt:
                child.set("IsInstanceOf", path_find_file_name(source))
            self.check_internal_reference(source, soi_directory)

    # Internal reference check ----------------------------------------------------------------

    def check_internal_reference(self, doc_path, soi_directory, depth=1):
        if depth > MAX_REFERENCE_DEPTH:
            raise ReferenceCycle(doc_path)
        tree, result = self.platform.open_document(doc_path)
        if result < 0:
            return result
        for node in tree.getroot().iter("CLitAssyGroup"):
            value = node.get("IsInstanceOf") or ""
            if value == "":
                continue
            target = soi_directory
            value = format_file_path(value)
            found, value, target = self.get_actual_path(doc_path, value, target)
            if found == 1:
                continue
            error = self.platform.copy_file(value, target)
            self.print_error(value, target, error)
            self.copied_xml_files.append(target)
            geometry = geometry_path_of(value, self.platform.encoding)
            target = geometry_path_of(target, self.platform.encoding)
            if self.platform.can_open_for_reading(geometry):
                error = self.platform.copy_file(geometry, target)
                self.print_error(geometry, target, error)
            else:
                self.log(UNABLE_TO_OPEN + geometry)
            self.check_internal_reference(value, soi_directory, depth + 1)
        return result

    # Relative path update --------------------------------------------------------------------

    def update_relative_paths(self, path):
        tree, result = self.platform.open_document(path)
        if result < 0:
            return result
        nodes = list(tree.getroot().iter("CLitAssyGroup"))
        if not nodes:
            return E_FAIL
        for node in nodes:
            value = format_file_path(node.get("IsInstanceOf") or "")
            value = value[value.rfind("\\") + 1:]
            node.set("IsInstanceOf", value)
        self.platform.save_document(tree, path)
        return S_OK

    def _update_all_relative_paths(self, result):
        count = len(self.copied_xml_files)
        self.log(UPDATING_LINE)
        for entry in self.copied_xml_files[:count]:
            result = self.update_relative_paths(entry)
        self.log(UPDATED_LINE)
        return result

    # Main document ---------------------------------------------------------------------------

    @staticmethod
    def _find_list_group(tree, ident):
        if tree is None:
            return None
        for element in tree.getroot().iter("CLitAssyGroup"):
            if element.get("Ident") == ident:
                return element
        return None

    def _walk_list_groups(self, tree, soi_directory, main_path, odt):
        for ident, before, after in LIST_GROUPS:
            node = self._find_list_group(tree, ident)
            if node is None:
                continue
            level = 0 if odt else 1
            self.log(before, level)
            self.handle_children_nodes(node, soi_directory, main_path, odt)
            self.log(after, level)

    # Public operations -----------------------------------------------------------------------

    def pack_n_go(self, main_path_from_generator, view_path, soi_directory):
        if main_path_from_generator == "":
            self.log("Info:\t Failed to get SOI.vgxXml file path")
            return E_FAIL
        main_path = format_file_path(main_path_from_generator)
        tree, _ = self.platform.open_document(main_path)
        self._walk_list_groups(tree, soi_directory, main_path, odt=False)
        update_resources(self.platform, tree, main_path, soi_directory)
        result = self.platform.save_document(tree, main_path)
        if view_path:
            view_tree, opened = self.platform.open_document(view_path)
            if opened >= 0:
                update_resources(self.platform, view_tree, view_path, soi_directory)
                view_tree.getroot().set("Document", "SOI.vgxXml")
                self.platform.save_document(view_tree, view_path)
        return self._update_all_relative_paths(result)

    def dump_vgx_package_odt(self, odt_in, soi_directory, light_mode, generate_mapping=False):
        self.log("Info:\t DumpVGXPackage_ODT ->>")
        self.log("Info:\t Generating VGX Package ...")
        self.log("Info:\t Running in ODT mode ...")
        input_directory = (odt_in or "") + "\\NOMZUBVGXExtractTest"
        self.log("Input Directory: " + input_directory)
        self.log("Output Directory: " + soi_directory)
        package_path = input_directory + "\\SOI.vgxXml"
        if not light_mode:
            package_path = format_file_path(package_path)
            tree, _ = self.platform.open_document(package_path)
            self._walk_list_groups(tree, soi_directory, package_path, odt=True)
            self.platform.save_document(tree, package_path)
        else:
            self.log(LIGHT_LINE)
        self._update_all_relative_paths(S_OK)
        if generate_mapping:
            raise NotImplementedError("the mapping stage is not modelled")
        self.log(MAPPING_SKIPPED_LINE)
        self.log("Info:\t <<- DumpVGXPackage_ODT ")


# --------------------------------------------------------------------------------------------
# The host.
# --------------------------------------------------------------------------------------------


def full_path(path, cwd):
    """A path of the command line as the host hands it to the module: a relative one joined to
    the working directory with "/" and its "." and ".." steps resolved by their text; a rooted,
    drive or network path exactly as typed."""
    if not path or path[0] in "/\\":
        return path
    if len(path) >= 2 and path[0].isascii() and path[0].isalpha() and path[1] == ":":
        return path
    names = []
    for text in (cwd, path):
        for name in re.split(r"[\\/]", text):
            if name == "..":
                if names:
                    names.pop()
            elif name not in ("", "."):
                names.append(name)
    return "/" + "/".join(names)


def lies_directly_in(platform, path, directory):
    native, _ = platform.to_native(path)
    native_directory, _ = platform.to_native(directory)
    if native is None or native_directory is None:
        return False
    return (os.path.realpath(os.path.dirname(os.path.abspath(native))) ==
            os.path.realpath(native_directory))


def saved_as(platform, path, out):
    """Where the module's save of the main document or view file lands: None for in place (it
    lies directly in the output directory), else the output directory under its own name."""
    if not path or lies_directly_in(platform, path, out):
        return None
    return out + "\\" + path_find_file_name(path)


class Preflight:
    """The host's walk of a package before the module runs, with the module's resolution of
    references and nothing written: it refuses a package whose references form a cycle (a
    document reached again, as the same file, while the walk is still below it) and, unless
    forced, one where two different files would land on one name in the output directory."""

    def __init__(self, platform, soi_directory):
        self.platform = platform
        self.soi_directory = soi_directory
        self.copies = []  # (source, target)

    def refusal(self, main_path, view_path, saved, odt, force):
        """"cycle", "collision" or None. saved: [(file, module path it is saved under)]."""
        platform = self.platform
        main_path = format_file_path(main_path)
        tree, _ = platform.open_document(main_path)
        try:
            self._walk_main(tree, main_path, platform.identity(main_path))
        except ReferenceCycle:
            return "cycle"
        if not odt:
            self._plan_resources(tree, main_path)
            if view_path:
                view_tree, _ = platform.open_document(view_path)
                self._plan_resources(view_tree, view_path)
        if not force and self._collides(saved):
            return "collision"
        return None

    def _plan(self, source, target, geometry, geometry_target):
        self.copies.append((source, target))
        if self.platform.file_opens(geometry):
            self.copies.append((geometry, geometry_target))

    def _walk_main(self, tree, main_path, main_identity):
        platform = self.platform
        soi = format_file_path(self.soi_directory)
        for ident, _, _ in LIST_GROUPS:
            node = Module._find_list_group(tree, ident)
            if node is None:
                continue
            for child in node:
                if child.tag != "CLitAssyGroup" or not child.get("IsInstanceOf"):
                    continue
                source, target = build_actual_path(
                    main_path, format_file_path(child.get("IsInstanceOf")), soi)
                if not platform.file_opens(source):
                    continue
                geometry = geometry_path_of(source, platform.encoding)
                self._plan(source, target, geometry,
                           soi + tail_from(geometry, geometry.rfind("\\")))
                self._walk(source, [main_identity])

    def _walk(self, path, above):
        platform = self.platform
        identity = platform.identity(path)
        if identity in above:
            raise ReferenceCycle(path)
        tree, result = platform.open_document(path)
        if result < 0:
            return
        above = above + [identity]
        for node in tree.getroot().iter("CLitAssyGroup"):
            value = node.get("IsInstanceOf") or ""
            if value == "":
                continue
            value, target = build_actual_path(path, format_file_path(value), self.soi_directory)
            if not platform.file_opens(value):
                continue
            self._plan(value, target, geometry_path_of(value, platform.encoding),
                       geometry_path_of(target, platform.encoding))
            self._walk(value, above)

    def _plan_resources(self, tree, document_path):
        if tree is None:
            return
        for element in tree.getroot().iter("Resource"):
            file_value = element.get("File")
            if not file_value:
                continue
            source = resource_source(file_value, document_path)
            if self.platform.file_opens(source):
                self.copies.append((source, self.soi_directory + "\\" + _bare_name(file_value)))

    def _collides(self, saved):
        platform = self.platform
        sources = {}  # (output directory, name without letter case) -> source identities
        for source, target in self.copies + saved:
            native, _ = platform.to_native(target)
            if native is None:
                continue
            key = (os.path.realpath(os.path.dirname(native)), fold_case(os.path.basename(native)))
            sources.setdefault(key, set()).add(platform.identity(source))
        return any(len(identities) > 1 for identities in sources.values())


class JournalRefused(Exception):
    """A file the journal must keep cannot be read (a directory stands where the main document or
    view file is saved): the host refuses to run the module."""


class Journal:
    """The main document and view file as they were before the run (where the module's saves
    land), put back when a copy or save failed: the same bytes and permission bits, or no file
    where there was none."""

    def __init__(self, platform, paths):
        self.entries = []
        for path in paths:
            native, _ = platform.to_native(path)
            if native is None:
                continue
            if os.path.isdir(native):
                raise JournalRefused(native)
            if os.path.lexists(native):
                with open(native, "rb") as handle:
                    self.entries.append((native, handle.read(), os.stat(native).st_mode & 0o777))
            else:
                self.entries.append((native, None, None))

    def restore(self):
        for native, data, mode in self.entries:
            if os.path.lexists(native):
                os.remove(native)
            if data is not None:
                with open(native, "wb") as handle:
                    handle.write(data)
                os.chmod(native, mode)


def _run_module(platform, out, main, view, preflight, odt, force, call):
    """What pack and odt share: preflight, output directory, journal, redirected saves, the
    module, restore on failure. Returns (module lines, exit status)."""
    main_saved_as = saved_as(platform, main, out)
    view_saved_as = saved_as(platform, view, out)
    if preflight:
        saved = [(main, main_saved_as or main)]
        if view:
            saved.append((view, view_saved_as or view))
        platform.refusal = Preflight(platform, out).refusal(main, view, saved, odt, force)
        if platform.refusal:
            return [], EXIT_REFUSED
    platform.create_directories(out)
    try:
        journal = Journal(platform,
                          [main_saved_as or main] + ([view_saved_as or view] if view else []))
    except JournalRefused:
        platform.refusal = "journal"
        return [], EXIT_REFUSED
    for path, destination in ((main, main_saved_as), (view, view_saved_as)):
        native, _ = platform.to_native(path) if path else (None, 0)
        if destination and native is not None:
            platform.redirects.append((native, destination))
    module = Module(platform)
    call(module)
    status = platform.outcome.exit_status()
    if status == EXIT_FAILED:
        journal.restore()
    return module.lines, status


def run_pack(platform, main, view, out, force=True):
    """`nomsoi pack --main MAIN [--view VIEW] --out OUT [--force]`: (module lines, exit status)."""
    main = full_path(main, platform.cwd)
    view = full_path(view, platform.cwd) if view else view
    out = full_path(out, platform.cwd)
    return _run_module(platform, out, main, view, True, False, force,
                       lambda module: module.pack_n_go(main, view, out))


def run_odt(platform, odt_in, out, light, force=True):
    """`nomsoi odt --in IN --out OUT [--light] [--force]`: (module lines, exit status)."""
    odt_in = full_path(odt_in, platform.cwd)
    out = full_path(out, platform.cwd)
    main = (odt_in or "") + "\\NOMZUBVGXExtractTest\\SOI.vgxXml"
    return _run_module(platform, out, main, None, not light, True, force,
                       lambda module: module.dump_vgx_package_odt(odt_in, out, light))
