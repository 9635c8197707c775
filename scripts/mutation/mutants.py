# SPDX-License-Identifier: MIT
"""Finds places in C++ sources where one small change makes a mutant, and writes sources that hold many mutants at once.

A mutant is M(number) ? changed : original, so that one build serves all and the environment chooses one at run time.
"""
import re
from dataclasses import dataclass

from clang import cindex
from clang.cindex import CursorKind as Kind, TypeKind

SWAPS = {'<': '<=', '<=': '<', '>': '>=', '>=': '>', '==': '!=', '!=': '==',
         '+': '-', '-': '+', '*': '/', '/': '*', '%': '*', '&': '|', '|': '&', '^': '&',
         '&&': '||', '||': '&&', '<<': '>>', '>>': '<<'}
# What is fixed at compile time cannot be switched at run time; uses of named constants can.
FIXED = (Kind.ENUM_CONSTANT_DECL, Kind.STATIC_ASSERT, Kind.CASE_STMT, Kind.TEMPLATE_NON_TYPE_PARAMETER,
         Kind.TYPE_ALIAS_DECL)
NUMBERS = set(range(TypeKind.CHAR_U.value, TypeKind.LONGDOUBLE.value + 1))


@dataclass
class Mutant:
    """One change to the bytes start to end of a file; `pieces` are the ranges in which further mutants may lie."""
    path: str
    line: int
    start: int
    end: int
    pieces: list
    pattern: str  # with {n} for the number and {0}, {1} ... for the pieces
    wrapper: bool
    change: str  # for people
    number: int = 0


class Finder:
    """Collects the mutants of one file."""

    def __init__(self, path, arguments):
        self.path = path
        self.mutants = []
        self.switch = 'M'
        unit = cindex.Index.create().parse(path, args=['-x', 'c++', *arguments],
                                           options=cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        errors = [d.spelling for d in unit.diagnostics if d.severity >= cindex.Diagnostic.Error]
        if errors:
            raise SystemExit(f'{path}: {errors[0]}')
        with open(path, 'rb') as file:
            self.text = file.read()
        here = [c for c in unit.cursor.get_children() if c.location.file and c.location.file.name == path]
        self.macros = [self.extent(c) for c in here if c.kind == Kind.MACRO_INSTANTIATION]
        for cursor in here:
            if not cursor.kind.is_preprocessing():
                self.visit(cursor, None)

    @staticmethod
    def extent(cursor):
        return cursor.extent.start.offset, cursor.extent.end.offset

    def visit(self, cursor, parent):
        start, end = self.extent(cursor)
        fixed = cursor.kind in (Kind.VAR_DECL, Kind.FIELD_DECL) and b'constexpr' in self.text[start:end].split(b'=')[0]
        if any(s <= start and end <= e for s, e in self.macros) or fixed:
            return
        children = list(cursor.get_children())
        outer = self.switch
        if cursor.kind == Kind.VAR_DECL and (cursor.type.is_const_qualified() or
                                             cursor.semantic_parent.kind in (Kind.TRANSLATION_UNIT, Kind.NAMESPACE)):
            self.switch = 'mutantIsActive'  # or the compiler would work out what a constant begins with
        self.look_at(cursor, parent, children)
        for child in children:
            behind = self.text[child.extent.end.offset:].lstrip()[:1]
            size_or_argument = behind == b'>' or (behind == b']' and cursor.kind in (Kind.VAR_DECL, Kind.FIELD_DECL))
            if child.kind not in FIXED and not size_or_argument:
                self.visit(child, cursor)
            elif child.kind == Kind.CASE_STMT:
                for part in list(child.get_children())[1:]:
                    self.visit(part, child)
        self.switch = outer

    def look_at(self, cursor, parent, children):
        start, end = self.extent(cursor)
        source = self.text[start:end].decode()
        if cursor.kind == Kind.BINARY_OPERATOR and len(children) == 2:
            left, right = map(self.extent, children)
            operator = self.text[left[1]:right[0]].decode().strip()
            if operator in SWAPS and (start, end) == (left[0], right[1]):
                other = SWAPS[operator]
                self.add(cursor, [left, right], f'(M({{n}}) ? ({{0}} {other} {{1}}) : ({{0}} {operator} {{1}}))', False,
                         f'{operator} -> {other} in  {source}')
        elif cursor.kind == Kind.IF_STMT and children[0].kind not in (Kind.DECL_STMT, Kind.VAR_DECL):
            condition = self.extent(children[0])
            text = self.text[slice(*condition)].decode()
            if b'constexpr' not in self.text[start:condition[0]]:
                for value in ('true', 'false'):
                    self.add(children[0], [condition], f'(M({{n}}) ? {value} : bool({{0}}))', True,
                             f'if ({text}) -> {value}')
        elif cursor.kind in (Kind.INTEGER_LITERAL, Kind.FLOATING_LITERAL):
            self.add(cursor, [(start, end)], '(M({n}) ? {0} + 1 : {0})', True, f'{source} -> {source} + 1')
        elif cursor.kind == Kind.DECL_REF_EXPR and re.fullmatch(r'[A-Z][A-Z0-9_]+', source) and \
                cursor.referenced.kind == Kind.VAR_DECL and cursor.type.get_canonical().kind.value in NUMBERS:
            self.add(cursor, [(start, end)], '(M({n}) ? {0} + 1 : {0})', True, f'{source} -> {source} + 1')
        elif cursor.kind == Kind.RETURN_STMT and children and \
                children[0].type.get_canonical().kind == TypeKind.BOOL:
            value = self.extent(children[0])
            self.add(children[0], [value], '(M({n}) ? !({0}) : ({0}))', True,
                     f'negated: return {self.text[slice(*value)].decode()}')
        elif parent is not None and parent.kind == Kind.COMPOUND_STMT and not source.startswith('assertionFailed'):
            call = cursor
            while call.kind in (Kind.CSTYLE_CAST_EXPR, Kind.UNEXPOSED_EXPR):  # (void), temporaries
                call = list(call.get_children())[-1]
            if call.kind == Kind.CALL_EXPR:
                self.add(cursor, [(start, end)], 'if (!M({n})) {0}', True, f'dropped: {source}')

    def add(self, cursor, pieces, pattern, wrapper, change):
        start, end = self.extent(cursor)
        if start < end and b'//' not in self.text[start:end]:
            pattern = pattern.replace('M(', self.switch + '(')
            self.mutants.append(Mutant(self.path, cursor.extent.start.line, start, end, pieces, pattern, wrapper,
                                       ' '.join(change.split())))


def find(path, arguments):
    """@return the mutants of one file, for a compiler with these arguments."""
    return Finder(path, arguments).mutants


def render(text, mutants, start=0, end=None):
    """The bytes start to end with all mutants in them. Lines stay where they are."""
    end = len(text) if end is None else end
    inside = sorted((m for m in mutants if start <= m.start and m.end <= end),
                    key=lambda m: (m.start, -m.end, not m.wrapper, m.number))
    result = b''
    while inside:
        mutant = inside.pop(0)
        if mutant.start < start:  # it lies in one that is already written
            continue
        pieces = [render(text, inside, *piece).decode() for piece in mutant.pieces]
        changed = ' '.join(mutant.pattern.format(*pieces, n=mutant.number).split('\n'))
        lines = text[mutant.start:mutant.end].count(b'\n')
        result += text[start:mutant.start] + changed.encode() + b'\n' * lines
        start = mutant.end
    return result + text[start:end]
