#!/usr/bin/python3
"""Usage: check_own_includes.py ROOT

Tells which of the product's sources use something without including what declares it, be it by way of other headers of the
project. Builds that compile several sources as one do not notice. Looked for are the names of the standard library in the
table below, and the types that headers of the project define. Exit status 0 when there is nothing to tell.
"""

import pathlib
import re
import sys

ROOMS = ("shared", "config", "driver", "panel", "platform", "service", "client", "ctl")

# Headers that declare a name of std. Any of them will do.
STANDARD = {
    "array": "array", "atomic": "atomic", "bitset": "bitset", "deque": "deque", "map": "map", "multimap": "map",
    "unordered_map": "unordered_map", "unordered_set": "unordered_set", "set": "set", "vector": "vector", "list": "list",
    "span": "span", "variant": "variant", "visit": "variant", "optional": "optional", "nullopt": "optional",
    "string": "string", "to_string": "string", "stoi": "string", "string_view": "string_view string",
    "unique_ptr": "memory", "shared_ptr": "memory", "make_unique": "memory", "make_shared": "memory",
    "function": "functional", "hash": "functional string string_view", "chrono": "chrono", "thread": "thread",
    "jthread": "thread", "this_thread": "thread", "mutex": "mutex", "lock_guard": "mutex", "unique_lock": "mutex",
    "scoped_lock": "mutex", "condition_variable": "condition_variable", "filesystem": "filesystem",
    "ifstream": "fstream", "ofstream": "fstream", "ostringstream": "sstream", "istringstream": "sstream",
    "numeric_limits": "limits", "error_code": "system_error", "system_category": "system_error",
    "generic_category": "system_error", "from_chars": "charconv", "to_chars": "charconv", "mt19937": "random",
    "random_device": "random", "accumulate": "numeric", "iota": "numeric", "bit_cast": "bit", "popcount": "bit",
    "countr_zero": "bit", "uint8_t": "cstdint", "uint16_t": "cstdint", "uint32_t": "cstdint", "uint64_t": "cstdint",
    "int32_t": "cstdint", "int64_t": "cstdint", "uintptr_t": "cstdint", "FILE": "cstdio", "snprintf": "cstdio",
    "memcpy": "cstring", "memset": "cstring", "memcmp": "cstring", "strlen": "cstring", "strcmp": "cstring",
    "strncmp": "cstring", "getenv": "cstdlib", "abort": "cstdlib", "move": "utility algorithm", "pair": "utility map",
    "exchange": "utility", "swap": "utility", "tuple": "tuple", "tie": "tuple", "is_same_v": "type_traits concepts",
    "sort": "algorithm", "find": "algorithm", "find_if": "algorithm", "any_of": "algorithm", "all_of": "algorithm",
    "none_of": "algorithm", "count_if": "algorithm", "min": "algorithm", "max": "algorithm", "clamp": "algorithm",
    "copy": "algorithm", "fill": "algorithm", "transform": "algorithm", "equal": "algorithm", "min_element": "algorithm",
    "max_element": "algorithm", "lower_bound": "algorithm", "upper_bound": "algorithm", "remove_if": "algorithm",
}
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]+(?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)
NOISE = re.compile(r'//[^\n]*|/\*.*?\*/|R"\((?:.|\n)*?\)"|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])\'', re.DOTALL)
# What a header defines in the project's own name space: at the margin, since bodies are indented there.
TYPE = re.compile(r"^(?:class|struct|enum class|union)\s+(\w+)(?:\s+final)?(?:\s*:\s*[^;{]*)?\s*\{", re.MULTILINE)
ALIAS = re.compile(r"^using\s+(\w+)\s*=", re.MULTILINE)
USED_STANDARD = re.compile(r"\bstd::(\w+)")
WORD = re.compile(r"(?<![\w.>])\b[A-Z]\w+\b")
# What else a word may mean: a type that is declared or nested, an enumerator, a function.
DECLARED = re.compile(r"\b(?:class|struct|enum class|union|using|typename)\s+(\w+)")
ENUMERATORS = re.compile(r"\benum class \w+(?:\s*:\s*[\w:]+)?\s*\{([^}]*)\}")
FUNCTION = re.compile(r"[\w>&*]\s+&?\*?(\w+)\([^;{}]*\)[^;{}]*[;{]")


def code_of(text):
    """The text without comments, text literals and includes."""
    return NOISE.sub(" ", INCLUDE.sub("", text))


class House:
    def __init__(self, root):
        self.texts = {str(path.relative_to(root)): path.read_text()
                      for room in ROOMS for path in sorted((root / room).rglob("*")) if path.suffix in (".h", ".cpp")}
        self.includes = {name: INCLUDE.findall(text) for name, text in self.texts.items()}
        self.codes = {name: code_of(text) for name, text in self.texts.items()}
        self.meanings = {name: set(DECLARED.findall(code)) | set(FUNCTION.findall(code)) |
                         set(re.findall(r"\w+", " ".join(ENUMERATORS.findall(code)))) for name, code in self.codes.items()}
        self.homes = {}
        for name, code in self.codes.items():
            if name.endswith(".h"):
                for word in TYPE.findall(code) + ALIAS.findall(code):
                    self.homes.setdefault(word, set()).add(name)

    def reach(self, name):
        """The project's headers that a source includes, itself among them, and the other headers; both with what those include."""
        seen, outside, waiting = {name}, set(), [name]
        while waiting:
            for own, other in self.includes[waiting.pop()]:
                if other:
                    outside.add(other)
                elif own in self.includes and own not in seen:
                    seen.add(own)
                    waiting.append(own)
        return seen, outside

    def complaints(self):
        for name, code in self.codes.items():
            own, outside = self.reach(name)
            for word in sorted(set(USED_STANDARD.findall(code))):
                if word in STANDARD and not outside & set(STANDARD[word].split()):
                    yield f"{name}: std::{word} without <{STANDARD[word].split()[0]}>"
            declared = set().union(*(self.meanings[reached] for reached in own))
            for word in sorted(set(WORD.findall(code)) - declared):
                if word in self.homes:
                    yield f"{name}: {word} without {' or '.join(sorted(self.homes[word]))}"


def main():
    complaints = list(House(pathlib.Path(sys.argv[1])).complaints())
    print("\n".join(complaints))
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
