#!/usr/bin/env python3
"""Writes a synthetic VGX package for the Pack & Go benchmark.

Layout under --out:
  package/SOI.vgxXml          main document; its ProductList names the top-level products
  package/SOI.vgxView         view file naming one thumbnail
  library/...                 product documents (.vgxXml) with their geometry (.vgxGeom)
  library/thumbs/Line.png     the shared resource

Every product document below the last level references --fan-out products of the next level, so
the package holds fan_out + fan_out^2 + ... + fan_out^depth documents (fan-out 10, depth 4:
11,110). A reference either creates a new product or, with probability --shared, points at one
already made on that level (the package stays free of cycles: references always go one level
down). The reference forms are taken in turn from --forms:
  plain    "Name_parts\\Child.vgxXml"      child in a folder beside its parent
  dot      ".\\Name_parts\\Child.vgxXml"
  slash    "Name_parts/Child.vgxXml"
  case     "name_parts\\CHILD.VGXXML"       letter case differs from the file on disk
  climb    "..\\..\\L2\\b003\\Child.vgxXml" child in the library's level folders
  absolute "Z:\\...\\Child.vgxXml"          Z: is the file system's root
A shared reference is written as climb or plain, whichever its relative path needs.

With --lattice the package is a shared lattice instead of a tree: --depth levels of --fan-out
product documents each (library/L<k>/), where every document of level k references all --fan-out
documents of level k+1 and the main document's ProductList references those of level 1. It holds
fan_out * depth unique documents but fan_out + fan_out^2 + ... + fan_out^depth paths from the main
document to a product (6 wide, 6 deep: 36 documents, 55,986 paths); --shared, --documents and
--seed do not apply, the forms are used in turn as for a tree.
"""

import argparse
import os
import random
import struct
import sys
import zlib

BUCKET = 256  # documents per folder of a level


def parse_args():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--out", required=True, help="directory to write (must not exist)")
    parser.add_argument("--fan-out", type=int, default=10, help="references per assembly")
    parser.add_argument("--depth", type=int, default=4, help="levels of products")
    parser.add_argument("--documents", type=int, default=0,
                        help="stop creating new products after this many (0: no limit)")
    parser.add_argument("--shared", type=float, default=0.0,
                        help="probability that a reference reuses an existing product (0..1)")
    parser.add_argument("--doc-size", type=int, default=1024, help="bytes per product document")
    parser.add_argument("--geometry-size", type=int, default=65536, help="bytes per geometry file")
    parser.add_argument("--forms", default="plain,dot,slash,climb",
                        help="reference forms, used in turn (plain,dot,slash,case,climb,absolute)")
    parser.add_argument("--seed", type=int, default=1, help="random seed for sharing")
    parser.add_argument("--lattice", action="store_true",
                        help="every document of a level references every document of the next")
    args = parser.parse_args()
    args.forms = args.forms.split(",")
    unknown = set(args.forms) - {"plain", "dot", "slash", "case", "climb", "absolute"}
    if unknown:
        parser.error("unknown reference forms: " + ",".join(sorted(unknown)))
    if args.fan_out < 1 or args.depth < 1:
        parser.error("--fan-out and --depth must be at least 1")
    return args


def glb(size):
    """A binary glTF of exactly size bytes (at least 40): an empty scene padded with a BIN chunk."""
    js = b'{"asset":{"version":"2.0","generator":"make_package.py"}}'
    js += b" " * (-len(js) % 4)
    header_and_json = 12 + 8 + len(js)
    payload = max(0, size - header_and_json - 8)
    payload -= payload % 4
    body = struct.pack("<II", len(js), 0x4E4F534A) + js
    if payload:
        body += struct.pack("<II", payload, 0x004E4942) + bytes(payload)
    return struct.pack("<III", 0x46546C67, 2, 12 + len(body)) + body


def png():
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data +
                struct.pack(">I", zlib.crc32(kind + data)))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", 1, 1, 8, 2, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(b"\x00\x30\x60\x90")) + chunk(b"IEND", b""))


class Generator:
    def __init__(self, args):
        self.args = args
        self.root = os.path.abspath(args.out)
        self.library = os.path.join(self.root, "library")
        self.random = random.Random(args.seed)
        self.geometry = glb(args.geometry_size)
        self.form_turn = 0
        self.created = 0
        self.per_level = {}  # level -> paths of the products made on it

    def next_form(self):
        form = self.args.forms[self.form_turn % len(self.args.forms)]
        self.form_turn += 1
        return form

    def new_location(self, level, parent_path, form):
        index = len(self.per_level.setdefault(level, []))
        name = "P%d_%06d" % (level, index)
        if form in ("climb", "absolute") or parent_path is None:
            folder = os.path.join(self.library, "L%d" % level, "b%03d" % (index // BUCKET))
        else:
            folder = os.path.splitext(parent_path)[0] + "_parts"
        return os.path.join(folder, name + ".vgxXml")

    @staticmethod
    def reference(form, path, parent_dir):
        relative = os.path.relpath(path, parent_dir)
        if form == "absolute":
            return "Z:" + path.replace("/", "\\")
        if relative.startswith(".."):
            return relative.replace("/", "\\") if form != "slash" else relative
        if form == "dot":
            return ".\\" + relative.replace("/", "\\")
        if form == "slash":
            return relative
        if form == "case":
            folder, name = os.path.split(relative)
            return (folder.lower() + "\\" + name.upper()) if folder else name.upper()
        return relative.replace("/", "\\")

    def write_product(self, path, level, children):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        name = os.path.splitext(os.path.basename(path))[0]
        lines = ['<?xml version="1.0" encoding="UTF-8"?>',
                 '<VgxDocument Product="%s">' % name,
                 '  <CLitAssyGroup Ident="%s" Name="%s">' % (name, name)]
        for i, ref in enumerate(children):
            lines.append('    <CLitAssyGroup Ident="%s.%d" Name="I%d" '
                         'Placement="1 0 0 0 1 0 0 0 1 %d 0 0" IsInstanceOf="%s"/>'
                         % (name, i + 1, i + 1, 100 * i, ref))
        lines += ["  </CLitAssyGroup>", "</VgxDocument>"]
        text = "\n".join(lines) + "\n"
        padding = self.args.doc_size - len(text.encode()) - len("<!--  -->\n")
        if padding > 0:
            text += "<!-- " + "x" * padding + " -->\n"
        with open(path, "w", encoding="utf-8") as f:
            f.write(text)
        with open(path[:-6] + "vgxGeom", "wb") as f:
            f.write(self.geometry)

    def may_create(self):
        return self.args.documents <= 0 or self.created < self.args.documents

    def child_reference(self, level, parent_path, parent_dir):
        """The reference text for one child at level; creates the child when it is new."""
        existing = self.per_level.get(level, [])
        if existing and (self.random.random() < self.args.shared or not self.may_create()):
            target = self.random.choice(existing)
            return self.reference("climb", target, parent_dir), None
        form = self.next_form()
        path = self.new_location(level, parent_path, form)
        self.per_level[level].append(path)
        self.created += 1
        return self.reference(form, path, parent_dir), path

    def build(self, level, parent_path, parent_dir):
        """Writes the products one reference list references, depth first; returns the list."""
        refs = []
        for _ in range(self.args.fan_out):
            if not self.may_create() and not self.per_level.get(level):
                break
            ref, path = self.child_reference(level, parent_path, parent_dir)
            refs.append(ref)
            if path is None:
                continue
            grandchildren = []
            if level < self.args.depth:
                grandchildren = self.build(level + 1, path, os.path.dirname(path))
            self.write_product(path, level, grandchildren)
        return refs

    def build_lattice(self, package):
        """Writes the lattice's levels bottom up; returns the main document's reference list."""
        def paths(level):
            return [os.path.join(self.library, "L%d" % level, "P%d_%06d.vgxXml" % (level, i))
                    for i in range(self.args.fan_out)]
        below = []
        for level in range(self.args.depth, 0, -1):
            for path in paths(level):
                parent_dir = os.path.dirname(path)
                refs = [self.reference(self.next_form(), child, parent_dir) for child in below]
                self.write_product(path, level, refs)
                self.created += 1
            below = paths(level)
        return [self.reference(self.next_form(), child, package) for child in below]

    def run(self):
        if os.path.exists(self.root):
            sys.exit("make_package.py: %s exists; give a new directory" % self.root)
        package = os.path.join(self.root, "package")
        os.makedirs(os.path.join(self.library, "thumbs"))
        os.makedirs(package)
        with open(os.path.join(self.library, "thumbs", "Line.png"), "wb") as f:
            f.write(png())
        if self.args.lattice:
            products = self.build_lattice(package)
        else:
            products = self.build(1, None, package)
        lines = ['<?xml version="1.0" encoding="UTF-8"?>', '<VgxDocument Name="Synthetic">',
                 '  <CLitAssyGroup Ident="ProductList" Name="Products">']
        for i, ref in enumerate(products):
            lines.append('    <CLitAssyGroup Ident="PRD-%d" Name="Top.%d" IsInstanceOf="%s"/>'
                         % (i + 1, i + 1, ref))
        lines += ["  </CLitAssyGroup>", '  <CLitAssyGroup Ident="ResourceList"/>',
                  '  <CLitAssyGroup Ident="ManufProd"/>',
                  '  <CLitAssyGroup Ident="PlanningContext"/>',
                  '  <Resource File="..\\library\\thumbs\\Line.png"/>', "</VgxDocument>"]
        with open(os.path.join(package, "SOI.vgxXml"), "w", encoding="utf-8") as f:
            f.write("\n".join(lines) + "\n")
        with open(os.path.join(package, "SOI.vgxView"), "w", encoding="utf-8") as f:
            f.write('<?xml version="1.0" encoding="UTF-8"?>\n<VgxViews Document="Synthetic.vgxXml">\n'
                    '  <View Ident="V1" Name="Overview" Camera="0 -2000 800 0 0 0 0 0 1"/>\n'
                    '  <Resource File="../library/thumbs/Line.png"/>\n</VgxViews>\n')
        print("%d product documents, %d bytes each with %d bytes of geometry, in %s"
              % (self.created, self.args.doc_size, len(self.geometry), self.root))


if __name__ == "__main__":
    Generator(parse_args()).run()
