"""Random packages for the Pack & Go oracle, reproducible from a seed.

generate(seed, work, mode) writes a small package (at most 30 files) under the directory `work` and
returns a Case: the nomsoi command line that processes it and the drive and share mappings it
needs. The same seed and the same `work` always give the same files.

A package has a main document "SOI.vgxXml" holding some of the four list groups in a random order,
product documents spread over a library (plain directories, a mapped drive Q:, a network share
\\\\srv\\pub), each with or without its geometry file, nested references up to three levels deep,
and references written in every form the module resolves: plain relative, with "/", ".\\", "..\\",
".\\..\\", "..\\.\\..\\", drive-absolute (Z: is "/"), on the mapped drives (also drive-relative
"Q:name", whose target name holds a colon Windows refuses), UNC, rooted, with letter-case
mismatches and empty components, empty or absent, to missing documents or directories, with
extensions other than ".vgxXml". Sometimes the SOI directory already holds read-only files or a
directory where a copy is to land, the main document is read-only, a product document is not XML,
the main document and view file name shared resources (some missing), products of the same name
lie in different places (collisions: three seeds in four pass --force), a product is named like
the main document, a product's name or directory is one Windows refuses (<>"|?*, a trailing dot or
blank), or a reference back up closes a cycle (nomsoi refuses the package).
"""

import os
import posixpath
import random

import packngo_model

MODES = ("pack", "odt")

NAMES = ("Frame", "Gear", "Bolt", "Axle", "Wheel", "Robot", "Cell", "Cart", "Drive", "Nut",
         "Plate", "Shaft", "Pump", "Seal", "Motor", "Base", "Arm", "Clamp", "Rail", "Teil\u00e9",
         "M8x40", "Hub", "Spring", "Cover", "R&D", "O'Ring", "Side Plate",
         # In code page 932 each of these holds a double-byte character whose second byte is a
         # backslash (0x5C) or "|" (0x7C): no path rule may split it there.
         "\u8868", "\u30bd\u90e8\u54c1", "\u80fd\u529b", "\u5341", "\u4e88\u5099",
         "\u8868a", "\u30dd\u30f3\u30d7")
CODE_PAGES = (65001, 932)
# Characters Windows refuses in a name; a product named with one of them is never found.
REFUSED_CHARACTERS = '?*|<>"'

# Directories that may hold product documents, relative to the work directory.
LIBRARY_DIRS = ("lib", "lib/sub", "lib/sub/deep", "x", "qdrive", "qdrive/parts", "share",
                "share/sub")
# Directories whose names Windows refuses (a trailing dot or blank): nothing in them is found.
REFUSED_DIRS = ("lib/v1.", "lib/old ")
Q_DRIVE = "qdrive"
SHARE_DIR = "share"
SHARE_PREFIX = "\\\\srv\\pub"
OUT_SHARE_PREFIX = "\\\\srv\\out"

MAX_FILES = 30


class Case:
    """One run: what nomsoi is given, and the mappings its platform layer gets."""

    def __init__(self, seed, mode, work):
        self.seed = seed
        self.mode = mode
        self.work = work
        self.cwd = work
        self.drives = {"Q": os.path.join(work, Q_DRIVE)}
        self.shares = {SHARE_PREFIX: os.path.join(work, SHARE_DIR)}
        self.main = None
        self.view = None
        self.out = None
        self.odt_in = None
        self.light = False
        self.attempt = 0
        self.code_page = 65001
        # Three seeds in four pass --force: two different files landing on one name are packed
        # as the module would (the later copy wins); without it nomsoi refuses such a package.
        self.force = seed % 4 != 0

    def global_args(self):
        args = ["--code-page", str(self.code_page)]
        for letter, directory in sorted(self.drives.items()):
            args += ["--drive", letter + "=" + directory]
        for prefix, directory in sorted(self.shares.items()):
            args += ["--share", prefix + "=" + directory]
        return args

    def command_args(self):
        if self.mode == "pack":
            args = ["pack", "--main", self.main]
            if self.view:
                args += ["--view", self.view]
            args += ["--out", self.out]
        else:
            args = ["odt", "--out", self.out, "--in", self.odt_in]
            args += ["--light"] if self.light else []
        return args + (["--force"] if self.force else [])

    def platform(self):
        return packngo_model.Platform(self.cwd, self.drives, self.shares,
                                      code_page=self.code_page)

    def run_model(self):
        """Runs the model on the package as it lies on disk: (module lines, exit status)."""
        if self.mode == "pack":
            return packngo_model.run_pack(self.platform(), self.main, self.view, self.out,
                                          self.force)
        return packngo_model.run_odt(self.platform(), self.odt_in, self.out, self.light,
                                     self.force)


class Product:
    """A product document of the package (or, among the generator's ghosts, a missing one)."""

    def __init__(self, name, ext, directory, encoding):
        self.name = name
        self.encoding = encoding  # of the narrow strings, for the geometry file's name
        self.ext = ext
        self.directory = directory  # relative to the work directory, "/" separated
        self.level = 0  # referenced only from documents of a lower level
        self.is_xml = True
        self.empty_file = False
        self.read_only = False
        self.geometry = True
        self.geometry_is_directory = False
        self.is_directory = False  # a directory lies where the document is expected
        self.root_group = True
        self.refs = []  # referenced products

    @property
    def file_name(self):
        return self.name + self.ext

    @property
    def rel_path(self):
        return self.directory + "/" + self.file_name

    @property
    def geometry_rel_path(self):
        return packngo_model.geometry_path_of(self.rel_path, self.encoding)


def _xml_attr(value):
    return (value.replace("&", "&amp;").replace("<", "&lt;").replace(">", "&gt;")
            .replace('"', "&quot;"))


def _element(tag, attributes, children=None, indent="  ", text=None):
    """One element with its attributes in the given order, children indented below it."""
    attrs = "".join(' %s="%s"' % (name, _xml_attr(value)) for name, value in attributes)
    if text is not None:
        return "%s<%s%s>%s</%s>\n" % (indent, tag, attrs, _xml_attr(text), tag)
    if not children:
        return "%s<%s%s/>\n" % (indent, tag, attrs)
    return "%s<%s%s>\n%s%s</%s>\n" % (indent, tag, attrs, "".join(children), indent, tag)


def _document(root_tag, attributes, children):
    return '<?xml version="1.0" encoding="UTF-8"?>\n' + _element(root_tag, attributes, children, "")


class Generator:
    def __init__(self, seed, work, mode, attempt):
        name = "%s:%d" % (mode, seed) + (":%d" % attempt if attempt else "")
        self.rng = random.Random(name)
        self.work = work
        self.case = Case(seed, mode, work)
        self.case.code_page = self.rng.choices(CODE_PAGES, (75, 25))[0]
        self.encoding = packngo_model.code_page_encoding(self.case.code_page)
        self.files = {}  # relative path -> bytes
        self.read_only = set()
        self.directories = set()
        self.products = []
        self.ghosts = []
        self.package_dir = None

    # File bookkeeping ----------------------------------------------------------------------------

    def _taken(self, rel_path):
        lowered = packngo_model.ascii_lower(rel_path)
        return any(packngo_model.ascii_lower(p) == lowered for p in self.files)

    def _add_file(self, rel_path, data):
        self.files[rel_path] = data.encode("utf-8") if isinstance(data, str) else data

    # Products ------------------------------------------------------------------------------------

    def _new_product(self, directory):
        rng = self.rng
        for _ in range(50):
            if self.products and rng.random() < 0.2:
                name = rng.choice(self.products).name  # same name elsewhere: the later copy wins
            else:
                name = rng.choice(self._names())
            odd = rng.random()
            if odd < 0.03:
                name = "SOI"  # its copy lands on the name the main document is saved under
            elif odd < 0.06:
                name += rng.choice(REFUSED_CHARACTERS) + "1"
            ext = rng.choices((".vgxXml", ".xml", ".VGXXML", ".vgx"), (85, 8, 4, 3))[0]
            product = Product(name, ext, directory, self.encoding)
            paths = {product.rel_path, product.geometry_rel_path}
            if any(self._taken_by_product(p) for p in paths) or self._is_package_file(
                    product.rel_path):
                continue
            return product
        return None

    def _is_package_file(self, rel_path):
        lowered = packngo_model.ascii_lower(rel_path)
        return any(packngo_model.ascii_lower(self.package_dir + "/" + name) == lowered
                   for name in ("SOI.vgxXml", "SOI.vgxView"))

    def _names(self):
        """The product names that the narrow strings' code page can hold."""
        names = []
        for name in NAMES:
            try:
                name.encode(self.encoding)
                names.append(name)
            except UnicodeEncodeError:
                pass
        return names

    def _taken_by_product(self, rel_path):
        lowered = packngo_model.ascii_lower(rel_path)
        for other in self.products + self.ghosts:
            for path in (other.rel_path, other.geometry_rel_path):
                if packngo_model.ascii_lower(path) == lowered:
                    return True
        return False

    def _make_products(self, product_dirs):
        rng = self.rng
        for _ in range(rng.randint(1, 9)):
            directory = rng.choice(product_dirs)
            if rng.random() < 0.03:
                directory = rng.choice(REFUSED_DIRS)
            product = self._new_product(directory)
            if product is None:
                continue
            product.level = rng.choices((0, 1, 2), (50, 30, 20))[0]
            product.geometry = rng.random() < 0.8
            product.geometry_is_directory = not product.geometry and rng.random() < 0.1
            product.is_xml = rng.random() < 0.95
            product.empty_file = not product.is_xml and rng.random() < 0.3
            product.read_only = rng.random() < 0.1
            product.root_group = rng.random() < 0.7
            self.products.append(product)
        for _ in range(rng.choice((0, 0, 1, 2))):
            ghost = self._new_product(rng.choice(product_dirs))
            if ghost is not None:
                ghost.is_directory = rng.random() < 0.2
                self.ghosts.append(ghost)
        for product in self.products:
            deeper = [p for p in self.products if p.level > product.level]
            candidates = deeper + self.ghosts
            if candidates and product.is_xml:
                product.refs = [rng.choice(candidates) for _ in range(rng.choice((0, 1, 1, 2, 3)))]
        documents = [p for p in self.products if p.is_xml]
        if documents and rng.random() < 0.08:
            # A reference back to a product of the same or a lower level (or to itself) closes a
            # cycle when that product leads here: nomsoi refuses the package.
            closing = rng.choice(documents)
            closing.refs.append(rng.choice([p for p in self.products if p.level <= closing.level]))

    # Reference forms -----------------------------------------------------------------------------

    def _flip_case(self, text):
        rng = self.rng
        chars = list(text)
        letters = [i for i, c in enumerate(chars) if c.isascii() and c.isalpha()]
        for i in rng.sample(letters, min(len(letters), rng.randint(1, 3))):
            chars[i] = chars[i].swapcase()
        return "".join(chars)

    def _reference(self, from_dir, product):
        """A reference to `product` written in a document lying in `from_dir`."""
        rng = self.rng
        target = product.rel_path
        components = target.split("/")
        if rng.random() < 0.15:  # letter-case mismatch inside the work directory
            i = rng.randrange(len(components))
            components[i] = self._flip_case(components[i])
        target = "/".join(components)
        absolute = self.work + "/" + target
        forms = []
        rel = posixpath.relpath(target, from_dir)
        back = rel.replace("/", "\\")
        same_root = target.split("/")[0] == from_dir.split("/")[0] or (
            target.split("/")[0] not in (Q_DRIVE, SHARE_DIR)
            and from_dir.split("/")[0] not in (Q_DRIVE, SHARE_DIR))
        if not rel.startswith(".."):
            forms += [(back, 6), (rel, 3), (".\\" + back, 4), ("./" + rel, 1)]
        else:
            weight = 6 if same_root else 1
            forms += [(back, weight), (rel, weight // 2 + 1)]
            if back.startswith("..\\"):
                forms += [(".\\" + back, weight // 2 + 1), ("..\\.\\" + back, weight // 2 + 1)]
        forms += [("Z:" + absolute.replace("/", "\\"), 4), ("z:" + absolute, 1),
                  ("\\" + absolute[1:].replace("/", "\\"), 1)]
        if components[0] == Q_DRIVE:
            inside = "\\".join(components[1:])
            forms += [("Q:\\" + inside, 5), ("q:/" + "/".join(components[1:]), 1),
                      ("Q:" + inside, 1)]
        if components[0] == SHARE_DIR:
            inside = "\\" + "\\".join(components[1:])
            forms += [(SHARE_PREFIX + inside, 6), (self._flip_case(SHARE_PREFIX) + inside, 1)]
        values, weights = zip(*forms)
        value = rng.choices(values, weights)[0]
        separators = [i for i in range(3, len(value)) if value[i] == "\\"]
        if separators and rng.random() < 0.03:  # an empty path component
            i = rng.choice(separators)
            value = value[:i] + "\\" + value[i:]
        return value

    def _reference_attributes(self, from_dir, ident, name):
        """The attributes of one child: a reference in some form, empty, or none."""
        rng = self.rng
        kind = rng.choices(("product", "ghost", "empty", "absent"), (85, 5, 5, 5))[0]
        attributes = [("Ident", ident), ("Name", name)]
        if kind == "empty":
            value = ""
        elif kind == "absent":
            return attributes
        elif kind == "ghost" or not self.products:
            ghost = self.ghosts[0] if self.ghosts else Product("Missing", ".vgxXml", "lib",
                                                               self.encoding)
            value = self._reference(from_dir, ghost)
        else:
            level0 = [p for p in self.products if p.level == 0]
            pool = level0 if level0 and rng.random() < 0.7 else self.products
            value = self._reference(from_dir, rng.choice(pool))
        if rng.random() < 0.5:
            return attributes + [("IsInstanceOf", value)]
        return [("IsInstanceOf", value)] + attributes

    # Documents -----------------------------------------------------------------------------------

    def _product_document(self, product):
        rng = self.rng
        if not product.is_xml:
            return "" if product.empty_file else "not an XML document <%s\n" % product.name
        children = []
        for n, ref in enumerate(product.refs):
            attributes = [("Ident", "%s.%d" % (product.name, n + 1)), ("Name", ref.name + ".1"),
                          ("IsInstanceOf", self._reference(product.directory, ref))]
            if rng.random() < 0.3:
                attributes.reverse()
            nested = []
            if rng.random() < 0.15:
                nested = [_element("Placement", [], text="1 0 0", indent="      ")]
            children.append(_element("CLitAssyGroup", attributes, nested, "    "))
        if product.refs and rng.random() < 0.2:
            kind = rng.choice(("empty", "absent"))
            extra = [("Ident", "Extra")] + ([("IsInstanceOf", "")] if kind == "empty" else [])
            children.insert(rng.randrange(len(children) + 1),
                            _element("CLitAssyGroup", extra, None, "    "))
        if product.root_group:
            body = [_element("CLitAssyGroup", [("Ident", product.name), ("Name", product.name)],
                             children, "  ")]
        else:
            body = [c[2:] for c in children]
        body.append(_element("Mesh", [("Unit", "mm")], text=product.name.lower(), indent="  "))
        if product.refs and rng.random() < 0.1:
            # The document element is a reference itself.
            root = [("Ident", product.name), ("IsInstanceOf", self._reference(
                product.directory, rng.choice(product.refs)))]
            return _document("CLitAssyGroup", root, body)
        return _document("VgxDocument", [("Product", product.name)], body)

    def _main_document(self, package_dir, resources):
        rng = self.rng
        groups = [g for g in ("ProductList", "ResourceList", "ManufProd", "PlanningContext")
                  if rng.random() < 0.75]
        rng.shuffle(groups)
        body = []
        for ident in groups:
            children = []
            for n in range(rng.choice((0, 1, 1, 2, 2, 3, 4))):
                attributes = self._reference_attributes(package_dir, "%s-%d" % (ident[:3], n + 1),
                                                        "Item%d" % n)
                nested = []
                if rng.random() < 0.1 and self.products:
                    nested.append(_element("CLitAssyGroup", [
                        ("Ident", "Nested"),
                        ("IsInstanceOf", self._reference(package_dir, rng.choice(self.products)))],
                        None, "      "))
                children.append(_element("CLitAssyGroup", attributes, nested, "    "))
            if rng.random() < 0.1 and self.products:
                note = [("IsInstanceOf", self._reference(package_dir, rng.choice(self.products)))]
                children.insert(rng.randrange(len(children) + 1),
                                _element("Note", note, None, "    "))
            body.append(_element("CLitAssyGroup", [("Ident", ident), ("Name", ident.lower())],
                                 children, "  "))
        if groups and rng.random() < 0.08:  # a later group of the same name is not walked
            body.append(_element("CLitAssyGroup", [("Ident", rng.choice(groups))], [
                _element("CLitAssyGroup",
                         [("Ident", "Later"), ("IsInstanceOf", "lib\\Later.vgxXml")], None,
                         "    ")], "  "))
        if body and rng.random() < 0.1:  # list groups need not be children of the root
            body = [_element("Lists", [], [("  " + line + "\n") for b in body
                                           for line in b.rstrip("\n").split("\n")], "  ")]
        operation = _element("Operation", [("OID", "OP-1"), ("Ident", "PRC-1/OP-10")], None, "    ")
        body.append(_element("Process", [("Name", "P")], [operation], "  "))
        for value in resources:
            body.insert(rng.randrange(len(body) + 1),
                        _element("Resource", [("File", value)], None, "  "))
        if rng.random() < 0.03:
            # The document element is a list group: its children are the other groups.
            return _document("CLitAssyGroup", [("Ident", rng.choice(
                ("ProductList", "ResourceList", "ManufProd", "PlanningContext")))], body)
        return _document("VgxDocument", [("Name", "SOI"), ("Version", "1")], body)

    def _resource(self, package_dir, n):
        rng = self.rng
        name = "tex%d.png" % n
        rel = package_dir + "/res/" + name
        data = bytes(rng.randrange(256) for _ in range(rng.randint(1, 64)))
        if rng.random() < 0.9:
            self._add_file(rel, data)  # else the resource is missing
        return rng.choice(("res\\" + name, "res/" + name,
                           "Z:" + (self.work + "/" + rel).replace("/", "\\")))

    def _view_document(self, package_dir):
        rng = self.rng
        children = [_element("View", [("Ident", "PRC-1/OP-10"), ("Camera", "0 0 1")], None, "  ")]
        if rng.random() < 0.6:
            resource = self._resource(package_dir, 9)
            children.append(_element("Resource", [("File", resource)], None, "  "))
        return _document("VgxViews", [("Document", "Old.vgxXml")], children)

    # SOI directory holding things already --------------------------------------------------------

    def _prepare_out(self, out_dir):
        rng = self.rng
        if rng.random() < 0.3:
            self.directories.add(out_dir)
        if rng.random() > 0.3 or not self.products:
            return
        self.directories.add(out_dir)
        for _ in range(rng.randint(1, 2)):
            product = rng.choice(self.products)
            name = rng.choice((product.file_name, product.geometry_rel_path.split("/")[-1]))
            if rng.random() < 0.3:
                name = self._flip_case(name)
            rel = out_dir + "/" + name
            lowered = packngo_model.ascii_lower(rel)
            if self._taken(rel) or any(packngo_model.ascii_lower(d) == lowered
                                       for d in self.directories):
                continue
            if rng.random() < 0.1:
                self.directories.add(rel)  # a directory where a copy is to land
                continue
            content = rng.choice((
                '<?xml version="1.0"?>\n<VgxDocument>\n'
                '  <CLitAssyGroup Ident="Old" IsInstanceOf="a\\Old.vgxXml"/>\n</VgxDocument>\n',
                '<?xml version="1.0"?>\n<VgxDocument Old="1"/>\n',
                "old bytes\n"))
            self._add_file(rel, content)
            self.read_only.add(rel)

    # The whole package ---------------------------------------------------------------------------

    def generate(self):
        rng = self.rng
        case = self.case
        product_dirs = LIBRARY_DIRS
        if rng.random() < 0.15:
            case.drives["R"] = self.work
        if case.mode == "pack":
            package_dir = rng.choices(("pkg", "pkg/inner", "out"), (50, 25, 25))[0]
            out_dir = "out"
        else:
            package_dir = "in/NOMZUBVGXExtractTest"
            out_dir = rng.choices(("out", package_dir), (90, 10))[0]
        self.package_dir = package_dir
        if package_dir == out_dir and rng.random() < 0.5:
            product_dirs += (out_dir, out_dir + "/sub")  # copies onto themselves, or beside
        self._make_products(product_dirs)
        for product in self.products:
            self._add_file(product.rel_path, self._product_document(product))
            if product.geometry:
                self._add_file(product.geometry_rel_path,
                               bytes(rng.randrange(256) for _ in range(rng.randint(0, 48))))
            elif product.geometry_is_directory:
                self.directories.add(product.geometry_rel_path)
            if product.read_only:
                self.read_only.add(product.rel_path)
                if product.geometry:
                    self.read_only.add(product.geometry_rel_path)
        for ghost in self.ghosts:
            if ghost.is_directory:
                self.directories.add(ghost.rel_path)
        resources = []
        if case.mode == "pack" and rng.random() < 0.3:
            resources = [self._resource(package_dir, n) for n in range(rng.randint(1, 2))]
        main_rel = package_dir + "/SOI.vgxXml"
        self._add_file(main_rel, self._main_document(package_dir, resources))
        if rng.random() < 0.1:
            self.read_only.add(main_rel)
        if case.mode == "pack" and rng.random() < 0.6:
            view_rel = package_dir + "/SOI.vgxView"
            self._add_file(view_rel, self._view_document(package_dir))
            case.view = self._path_form(view_rel, relative_weight=1)
        self._prepare_out(out_dir)
        case.out = self._out_form(out_dir)
        if case.mode == "pack":
            case.main = self._path_form(main_rel, relative_weight=3)
        else:
            case.odt_in = self._path_form("in", relative_weight=3)
            case.light = rng.random() < 0.1
        assert len(self.files) <= MAX_FILES, len(self.files)
        self._write()
        return case

    def _path_form(self, rel, relative_weight):
        """How a path given to nomsoi is written: absolute, Z:, on drive R: (the work
        directory), or relative to the working directory."""
        absolute = self.work + "/" + rel
        forms = [(absolute, 10), ("Z:" + absolute.replace("/", "\\"), 5), ("Z:" + absolute, 1),
                 (rel, relative_weight), ("./" + rel, 1)]
        if "R" in self.case.drives:
            forms += [("R:\\" + rel.replace("/", "\\"), 5), ("r:/" + rel, 1)]
        values, weights = zip(*forms)
        return self.rng.choices(values, weights)[0]

    def _out_form(self, out_dir):
        rng = self.rng
        form = self._path_form(out_dir, relative_weight=3)
        choice = rng.random()
        if choice < 0.05:
            form += "/"
        elif choice < 0.1:
            self.case.shares[OUT_SHARE_PREFIX] = os.path.join(self.work, out_dir)
            self.directories.add(out_dir)  # a share's directory must exist
            form = rng.choice((OUT_SHARE_PREFIX, self._flip_case(OUT_SHARE_PREFIX)))
        elif choice < 0.15 and (out_dir in self.directories or any(
                f.startswith(out_dir + "/") for f in self.files)):
            form = form[:-len(out_dir)] + out_dir.upper()
        return form

    def _write(self):
        os.makedirs(self.work, exist_ok=True)
        for directory in sorted(LIBRARY_DIRS):
            os.makedirs(os.path.join(self.work, directory), exist_ok=True)
        for directory in sorted(self.directories):
            os.makedirs(os.path.join(self.work, directory), exist_ok=True)
        for rel, data in sorted(self.files.items()):
            path = os.path.join(self.work, rel)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "wb") as handle:
                handle.write(data)
        for rel in sorted(self.read_only):
            os.chmod(os.path.join(self.work, rel), 0o444)


def generate(seed, work, mode, attempt=0):
    """Writes the package of `seed` for `mode` ("pack" or "odt") under `work`; returns its Case.

    `attempt` gives another package for the same seed: with --force, copies made during the run
    may replace a document the module reads later, which can make it follow references without
    end; a caller whose model run finds that (packngo_model.ReferenceCycle) asks for the next
    attempt.
    """
    if mode not in MODES:
        raise ValueError("mode must be one of %s" % (MODES,))
    case = Generator(seed, work, mode, attempt).generate()
    case.attempt = attempt
    return case
