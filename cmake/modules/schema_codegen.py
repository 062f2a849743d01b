#!/usr/bin/env python3
"""Writes, from the schema itself, what the build needs of each field.

    schema_codegen.py DESCRIPTORS PROTOC_OUT OUT

DESCRIPTORS is what `protoc --descriptor_set_out --include_imports` writes for
proto/; PROTOC_OUT the folder `protoc --cpp_out` wrote the message classes
into. Into OUT go:

  *.pb.h, *.pb.cc     protoc's classes, each class's parser handed to the
                      library's one parse (linkward::parse_in_context), which
                      merges as the classic coded input stream does;
  message_fields.inc  each class's field-by-field dispatch for that parse;
  schema_tables.h     the schema as data, for the tool and the fuzz oracle,
                      and the list of classes.

Python's standard library only: the descriptors are read with the few lines
of wire decoding below. Anything in the schema that the library's parse does
not read, or protoc output not of the expected shape, stops the build with a
message saying what and where.
"""

import os
import sys

# The descriptor fields read here (google/protobuf/descriptor.proto).
FILE_NAME, FILE_PACKAGE, FILE_MESSAGES, FILE_ENUMS = 1, 2, 4, 5
FILE_EXTENSIONS, FILE_OPTIONS, FILE_SYNTAX = 7, 8, 12
OPTIMIZE_FOR, LITE_RUNTIME = 9, 3
MESSAGE_NAME, MESSAGE_FIELDS, MESSAGE_NESTED, MESSAGE_ENUMS = 1, 2, 3, 4
MESSAGE_EXTENSION_RANGES, MESSAGE_EXTENSIONS, MESSAGE_OPTIONS = 5, 6, 7
MESSAGE_ONEOFS, MAP_ENTRY = 8, 7
FIELD_NAME, FIELD_NUMBER, FIELD_LABEL, FIELD_TYPE = 1, 3, 4, 5
FIELD_TYPE_NAME, FIELD_DEFAULT, FIELD_ONEOF = 6, 7, 9
ENUM_NAME, ENUM_VALUES, VALUE_NAME, VALUE_NUMBER = 1, 2, 1, 2
REPEATED = 3  # the label of a repeated field

# The field types the library's parse reads: the kind the tables give each,
# and whether it arrives as a varint or length-delimited.
KINDS = {5: "kInt32", 8: "kBool", 14: "kEnum", 9: "kString", 12: "kBytes",
         11: "kMessage"}
TYPE_NAMES = {1: "double", 2: "float", 3: "int64", 4: "uint64", 6: "fixed64",
              7: "fixed32", 10: "group", 13: "uint32", 15: "sfixed32",
              16: "sfixed64", 17: "sint32", 18: "sint64"}
VARINT, LENGTH_DELIMITED = 0, 2

CPP_KEYWORDS = set("""alignas alignof and and_eq asm auto bitand bitor bool
break case catch char char8_t char16_t char32_t class compl concept const
consteval constexpr constinit const_cast continue co_await co_return co_yield
decltype default delete do double dynamic_cast else enum explicit export
extern false float for friend goto if inline int long mutable namespace new
noexcept not not_eq nullptr operator or or_eq private protected public
register reinterpret_cast requires return short signed sizeof static
static_assert static_cast struct switch template this thread_local throw true
try typedef typeid typename union unsigned using virtual void volatile wchar_t
while xor xor_eq""".split())


class SchemaError(Exception):
    pass


# ---------------------------------------------------------------------------
# The descriptors' wire format

def varint(data, at):
    value = shift = 0
    while True:
        if at >= len(data):
            raise SchemaError("the descriptor set is cut short")
        byte = data[at]
        at += 1
        value |= (byte & 0x7F) << shift
        shift += 7
        if byte < 0x80:
            return value, at


def records(data):
    """{field number: [values]}: ints for varints, bytes for the rest."""
    found = {}
    at = 0
    while at < len(data):
        key, at = varint(data, at)
        number, wire_type = key >> 3, key & 7
        if wire_type == VARINT:
            value, at = varint(data, at)
        elif wire_type == LENGTH_DELIMITED:
            length, at = varint(data, at)
            value, at = data[at:at + length], at + length
        elif wire_type in (1, 5):
            size = 8 if wire_type == 1 else 4
            value, at = data[at:at + size], at + size
        else:
            raise SchemaError("unexpected wire type %d in the descriptor set"
                              % wire_type)
        found.setdefault(number, []).append(value)
    return found


def text(fields, number, default=""):
    return fields[number][0].decode() if number in fields else default


def integer(fields, number, default=0):
    value = fields[number][0] if number in fields else default
    return value - (1 << 64) if value >= 1 << 63 else value


# ---------------------------------------------------------------------------
# The schema as read

class Enum:
    def __init__(self, full_name, cpp, values):
        self.full_name = full_name  # linkward.info.req.URL.Charset
        self.cpp = cpp              # ::linkward::info::req::URL_Charset
        self.values = values        # [(name, number)] in declaration order


class Field:
    def __init__(self, message, fields):
        self.name = text(fields, FIELD_NAME)
        self.where = "%s.%s" % (message, self.name)
        self.number = integer(fields, FIELD_NUMBER)
        self.label = integer(fields, FIELD_LABEL)
        self.type = integer(fields, FIELD_TYPE)
        self.type_name = text(fields, FIELD_TYPE_NAME).lstrip(".")
        self.default = text(fields, FIELD_DEFAULT, None)
        if FIELD_ONEOF in fields:
            raise SchemaError(self.where + ": oneof fields are not read by "
                              "the library's parse")
        if self.type not in KINDS:
            raise SchemaError("%s: %s fields are not read by the library's "
                              "parse" % (self.where, TYPE_NAMES[self.type]))
        self.kind = KINDS[self.type]
        if self.label == REPEATED and self.kind in ("kInt32", "kBool",
                                                    "kEnum"):
            raise SchemaError(self.where + ": repeated numbers are not read "
                              "by the library's parse")
        # The accessors' names, as protoc makes them.
        self.accessor = self.name.lower()
        if self.accessor in CPP_KEYWORDS:
            self.accessor += "_"
        self.wire_type = (VARINT if self.kind in ("kInt32", "kBool", "kEnum")
                          else LENGTH_DELIMITED)
        self.key = self.number << 3 | self.wire_type


class Message:
    def __init__(self, full_name, cpp, proto_file, fields, map_entry):
        self.full_name = full_name
        self.map_entry = map_entry  # the entries of a map field
        self.cpp = cpp
        self.proto_file = proto_file
        self.fields = sorted(fields, key=lambda f: f.number)
        # ::linkward::info::req::URL -> URL, as the .pb.cc names it.
        self.local_name = cpp.rsplit("::", 1)[1]


class Schema:
    def __init__(self, descriptor_set):
        self.messages, self.enums = [], []
        for file_bytes in records(descriptor_set).get(1, []):
            self.read_file(records(file_bytes))
        self.enum_index = {e.full_name: i for i, e in enumerate(self.enums)}
        self.message_index = {m.full_name: i
                               for i, m in enumerate(self.messages)}
        for message in self.messages:
            for field in message.fields:
                self.resolve(field)

    def read_file(self, fields):
        name = text(fields, FILE_NAME)
        if text(fields, FILE_SYNTAX, "proto2") != "proto2":
            raise SchemaError(name + ": the library's parse reads proto2 "
                              "schemas alone: syntax = \"proto2\";")
        options = records(fields[FILE_OPTIONS][0]) if FILE_OPTIONS in fields \
            else {}
        if integer(options, OPTIMIZE_FOR) != LITE_RUNTIME:
            raise SchemaError(name + ": the library is built on the lite "
                              "runtime: option optimize_for = LITE_RUNTIME;")
        if FILE_EXTENSIONS in fields:
            raise SchemaError(name + ": extensions are not read by the "
                              "library's parse")
        package = text(fields, FILE_PACKAGE)
        namespace = "::" + package.replace(".", "::") if package else ""
        prefix = package + "." if package else ""
        for enum in fields.get(FILE_ENUMS, []):
            self.read_enum(records(enum), prefix, namespace + "::")
        for message in fields.get(FILE_MESSAGES, []):
            self.read_message(records(message), prefix, namespace + "::",
                              name)

    def read_enum(self, fields, prefix, cpp_prefix):
        name = text(fields, ENUM_NAME)
        values = []
        for value in fields.get(ENUM_VALUES, []):
            value = records(value)
            values.append((text(value, VALUE_NAME),
                           integer(value, VALUE_NUMBER)))
        self.enums.append(Enum(prefix + name, cpp_prefix + name, values))

    def read_message(self, fields, prefix, cpp_prefix, proto_file):
        name = text(fields, MESSAGE_NAME)
        full_name, cpp = prefix + name, cpp_prefix + name
        for unsupported, what in ((MESSAGE_EXTENSION_RANGES, "extensions"),
                                  (MESSAGE_EXTENSIONS, "extensions"),
                                  (MESSAGE_ONEOFS, "oneofs")):
            if unsupported in fields:
                raise SchemaError("%s: %s are not read by the library's parse"
                                  % (full_name, what))
        # Nested types are named Outer_Inner in C++.
        for enum in fields.get(MESSAGE_ENUMS, []):
            self.read_enum(records(enum), full_name + ".", cpp + "_")
        options = (records(fields[MESSAGE_OPTIONS][0])
                   if MESSAGE_OPTIONS in fields else {})
        message = Message(full_name, cpp, proto_file,
                          [Field(full_name, records(f))
                           for f in fields.get(MESSAGE_FIELDS, [])],
                          integer(options, MAP_ENTRY) != 0)
        self.messages.append(message)
        for nested in fields.get(MESSAGE_NESTED, []):
            self.read_message(records(nested), full_name + ".", cpp + "_",
                              proto_file)

    def resolve(self, field):
        field.enum = field.message = None
        if field.kind == "kEnum":
            field.enum = self.enums[self.enum_index[field.type_name]]
        if field.kind == "kMessage":
            field.message = self.messages[self.message_index[field.type_name]]
            if field.message.map_entry:
                raise SchemaError(field.where + ": map fields are not read by "
                                  "the library's parse")
        field.type_index = (self.enum_index.get(field.type_name) if field.enum
                            else self.message_index.get(field.type_name, 0))

    def default_of(self, field):
        """The value a number field reads while absent."""
        if field.default is None:
            return field.enum.values[0][1] if field.enum else 0
        if field.kind == "kBool":
            return 1 if field.default == "true" else 0
        if field.enum:
            return dict(field.enum.values)[field.default]
        return int(field.default)


# ---------------------------------------------------------------------------
# message_fields.inc: each class's dispatch

READS = {
    "kInt32": "r.int32(m, &M::{a}, &M::set_{a})",
    "kBool": "r.boolean(m, &M::{a}, &M::set_{a})",
    "kEnum": "r.enumeration(m, key, {valid}, &M::set_{a})",
    "kString": "r.bytes({target})",
    "kBytes": "r.bytes({target})",
    "kMessage": "r.message({target})",
}


def read_call(field):
    target = ("add_element(m.mutable_%s())" if field.label == REPEATED
              else "m.mutable_%s()") % field.accessor
    valid = field.enum.cpp + "_IsValid" if field.enum else ""
    return READS[field.kind].format(a=field.accessor, target=target,
                                    valid=valid)


def dispatch(schema):
    out = ["// Written by cmake/modules/schema_codegen.py from proto/; not to be "
           "edited.", "// Each message's fields under the key each arrives "
           "with, read as its type is.", ""]
    for message in schema.messages:
        out.append("bool read_field(Reader& r, %s& m, uint32_t key) {"
                   % message.cpp)
        if any("&M::" in read_call(f) for f in message.fields):
            out.append("  using M = %s;" % message.cpp)
        out.append("  switch (key) {")
        for field in message.fields:
            out.append("    case %s(%d):" % ("varint_key" if field.wire_type
                                            == VARINT else "length_key",
                                            field.number))
            out.append("      return %s;" % read_call(field))
        out += ["    default:",
                "      return r.skip(m.mutable_unknown_fields(), key);",
                "  }", "}", ""]
    return "\n".join(out)


# ---------------------------------------------------------------------------
# schema_tables.h: the schema as data

TABLE_TYPES = """\
namespace linkward {
namespace schema {

enum class Kind : unsigned char { kInt32, kBool, kEnum, kString, kBytes, kMessage };

struct EnumValue {
  const char* name;
  int32_t number;
};

struct Enum {
  const char* name;  // the full name, as linkward.info.req.URL.Charset
  const EnumValue* values;  // in declaration order
  int count;
};

struct Field {
  const char* name;
  int number;
  uint32_t key;  // the field's tag under its own wire type
  Kind kind;
  bool repeated;
  int type;  // an index into kMessages, or into kEnums for an enumeration
  int64_t default_value;  // what a number reads while absent
};

struct Message {
  const char* name;  // the full name, as linkward.info.resp.Response
  const Field* fields;  // in field-number order
  int count;
};
"""


def tables(schema):
    out = ["// Written by cmake/modules/schema_codegen.py from proto/; not to be "
           "edited.", "#ifndef LINKWARD_SCHEMA_TABLES_H",
           "#define LINKWARD_SCHEMA_TABLES_H", "", "#include <cstdint>", "",
           TABLE_TYPES]
    for i, enum in enumerate(schema.enums):
        out.append("inline constexpr EnumValue kEnum%dValues[] = {" % i)
        out += ['    {"%s", %d},' % value for value in enum.values]
        out.append("};")
    out.append("inline constexpr Enum kEnums[] = {")
    out += ['    {"%s", kEnum%dValues, %d},' % (e.full_name, i, len(e.values))
            for i, e in enumerate(schema.enums)]
    out += ["};", ""]
    for i, message in enumerate(schema.messages):
        if not message.fields:
            continue
        out.append("inline constexpr Field kMessage%dFields[] = {" % i)
        for f in message.fields:
            out.append('    {"%s", %d, %d, Kind::%s, %s, %d, %d},' % (
                f.name, f.number, f.key, f.kind,
                "true" if f.label == REPEATED else "false",
                f.type_index or 0, schema.default_of(f)
                if f.kind in ("kInt32", "kBool", "kEnum") else 0))
        out.append("};")
    out.append("inline constexpr Message kMessages[] = {")
    out += ['    {"%s", %s, %d},' % (
        m.full_name, "kMessage%dFields" % i if m.fields else "nullptr",
        len(m.fields)) for i, m in enumerate(schema.messages)]
    out += ["};", "", "}  // namespace schema", "}  // namespace linkward",
            "", "// X(class) for every message class, in the order of "
            "kMessages."]
    out.append("#define LINKWARD_FOR_EACH_MESSAGE(X) \\")
    out += ["  X(%s) \\" % m.cpp for m in schema.messages]
    out += ["", "#endif", ""]
    return "\n".join(out)


# ---------------------------------------------------------------------------
# The classes: protoc's, each parser handed to the library's parse

PARSER = ("const char* %s::_InternalParse(const char* ptr, "
          "::_pbi::ParseContext* ctx) {\n")
ANY_PARSER = "::_InternalParse(const char* ptr, ::_pbi::ParseContext* ctx) {"
PARSER_END = "#undef CHK_\n}\n"
ANCHOR = "namespace _pbi = _pb::internal;\n"
DECLARATION = """namespace linkward {
template <class Message>
const char* parse_in_context(Message&, const char*, ::_pbi::ParseContext*);
}  // namespace linkward
"""


def hand_parsers_over(code, path, messages):
    """protoc's .pb.cc with each class's parser replaced by a call to the
    library's parse; stops unless it finds each class's parser once and no
    other."""
    def unexpected(what):
        return SchemaError("%s: %s; protoc's output has changed and the "
                           "rewrite of its parsers must be revisited"
                           % (path, what))
    for message in messages:
        signature = PARSER % message.local_name
        if code.count(signature) != 1:
            raise unexpected("%d parsers of %s, not one"
                             % (code.count(signature), message.local_name))
        start = code.index(signature) + len(signature)
        end = code.find(PARSER_END, start)
        if end < 0:
            raise unexpected("the parser of %s has no end"
                             % message.local_name)
        code = (code[:start] + "  return ::linkward::parse_in_context(*this, "
                "ptr, ctx);\n}\n" + code[end + len(PARSER_END):])
    if code.count(ANY_PARSER) != len(messages):
        raise unexpected("%d parsers for %d message classes"
                         % (code.count(ANY_PARSER), len(messages)))
    if code.count(ANCHOR) != 1:
        raise unexpected("no one place for the parse's declaration")
    return code.replace(ANCHOR, ANCHOR + DECLARATION)


def write_if_changed(path, content):
    try:
        with open(path) as old:
            if old.read() == content:
                return
    except FileNotFoundError:
        pass
    with open(path, "w") as new:
        new.write(content)


def main(descriptors, protoc_out, out):
    """Writes nothing unless everything could be written."""
    with open(descriptors, "rb") as f:
        schema = Schema(f.read())
    by_file = {}
    for message in schema.messages:
        by_file.setdefault(message.proto_file, []).append(message)
    outputs = {"message_fields.inc": dispatch(schema),
               "schema_tables.h": tables(schema)}
    for proto_file, messages in by_file.items():
        stem = os.path.splitext(os.path.basename(proto_file))[0]
        for suffix in (".pb.h", ".pb.cc"):
            path = os.path.join(protoc_out, stem + suffix)
            with open(path) as f:
                code = f.read()
            if suffix == ".pb.cc":
                code = hand_parsers_over(code, path, messages)
            outputs[stem + suffix] = code
    for name, content in outputs.items():
        write_if_changed(os.path.join(out, name), content)


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    try:
        main(*sys.argv[1:])
    except SchemaError as error:
        sys.exit("schema_codegen.py: " + str(error))
