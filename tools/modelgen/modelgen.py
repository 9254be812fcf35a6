#!/usr/bin/env python3
"""Prints the C++ of the records that src/model/*.model declare.

A schema file is a list of entities, one line an attribute:

    # What the entity is; the lines above it become its comment.
    entity Zeb::ZebClient
      key      systemId           Fabric::SystemId                          | intake | the switch
      plain    hostname           Rix::String8                              | intake | as the switch reports it
      entities reachabilityGroup  Rix::Name -> Zeb::ClientReachabilityGroup | intake | the groups it reports

The columns after the bars are who writes the attribute, and its comment. Kinds of attributes:

    key, const   given at construction, in this order, never changed; `key` is the key in the parent's collection
    plain        a value:                       x(), xIs(value)
    ref          a pointer to another entity:   x(), xIs(pointer)
    owned        at most one entity of its own: x(), xIs(), xDel()
    entities     a keyed collection of entities of its own:    x(key), xs(), xIs(key, ...), xDel(key), xDelAll()
    refs         the same of entities owned elsewhere:         xIs(pointer)
    values       a keyed collection of values:                 xIs(key, value)
    queue        a link queue of values:                       xEnq(value), xDeq(), xDelAll(), xs()

Flags between brackets behind the type: [counter] adds xInc(n); [present] makes an owned entity at construction;
[rewritten] tells replicas to apply a changed value as deletion and addition. A default stands behind `=`.

The generator prints lists; what happens on a write stands once, by hand, in src/runtime.
Usage: modelgen.py [--check]   writes src/model/gen, or with --check says what is not up to date (exit status 1).
"""
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
MODEL = ROOT / 'src' / 'model'
KINDS = ('key', 'const', 'plain', 'ref', 'owned', 'entities', 'refs', 'values', 'queue')
BY_VALUE = {'bool', 'U8', 'U16', 'U32', 'U64', 'double', 'Rix::Seconds'}
LINE = re.compile(r'^\s+(?P<kind>\w+)\s+(?P<name>\w+)\s+(?P<type>[\w:]+)(?:\s*->\s*(?P<member>(?:const )?[\w:]+))?'
                  r'(?:\s*\[(?P<flags>[\w ]+)\])?(?:\s*=\s*(?P<default>\S+))?\s*\|\s*(?P<writer>[^|]*?)\s*\|\s*(?P<comment>.*)$')


class Attribute:
    def __init__(self, where, match):
        for field, value in match.groupdict().items():
            setattr(self, field, value)
        self.flags = (self.flags or '').split()
        if self.kind not in KINDS:
            raise SystemExit(f'{where}: {self.kind} is no kind of attribute; expected one of {", ".join(KINDS)}')
        keyed = self.kind in ('entities', 'refs', 'values')
        if keyed != bool(self.member):
            raise SystemExit(f'{where}: {self.kind} {"needs" if keyed else "has no"} "-> type"')
        self.constant_member = self.member is not None and self.member.startswith('const ')
        if self.member:
            self.member = self.member.removeprefix('const ')
        self.cap = self.name[0].upper() + self.name[1:]

    @property
    def keyed(self):
        return self.kind in ('entities', 'refs', 'values')


class Entity:
    def __init__(self, name, comment, family):
        self.scope, self.name = name.rsplit('::', 1)
        self.full, self.comment, self.family, self.attributes = name, comment, family, []

    @property
    def constants(self):
        return [a for a in self.attributes if a.kind in ('key', 'const')]

    @property
    def watched(self):
        return [a for a in self.attributes if a.kind not in ('key', 'const')]

    def key(self):
        return next((a for a in self.attributes if a.kind == 'key'), None)


class Family:
    """One schema file: its prose, what it includes, its entities in order."""

    def __init__(self, path):
        self.name, self.prose, self.includes, self.entities = path.stem, [], [], []
        comment = []
        for number, line in enumerate(path.read_text().splitlines(), 1):
            where = f'{path}:{number}'
            if line.startswith('include '):
                self.includes.append(line.split()[1])
            elif line.startswith('#'):
                comment.append(line[1:].strip())
            elif line.startswith('entity '):
                self.entities.append(Entity(line.split()[1], comment, self))
                comment = []
            elif not line.strip():
                if comment and not self.entities and not self.prose:
                    self.prose = comment
                comment = []
            else:
                match = LINE.match(line)
                if not match or not self.entities:
                    raise SystemExit(f'{where}: expected "kind name type [-> type] [flags] [= default] | writer | comment"')
                self.entities[-1].attributes.append(Attribute(where, match))


def passed(type_name):
    """How a value of a type is passed: integers by value, all else by reference to const."""
    return type_name if type_name in BY_VALUE else f'{type_name} const&'


class Printer:
    def __init__(self, families):
        self.entities = {e.full: e for f in families for e in f.entities}

    def parameters(self, entity):
        return ', '.join(f'{passed(a.type)} {a.name}' for a in entity.constants)

    def pointer(self, attribute):
        const = ' const' if attribute.constant_member else ''
        return f'Rix::Ptr<{attribute.member}{const}>'

    # --- header ------------------------------------------------------------------------------------------------

    def header(self, family):
        out = [f'// Generated by tools/modelgen from {family.name}.model; do not edit.', '//']
        out += [f'// {line}'.rstrip() for line in family.prose]
        out += ['#pragma once', '']
        needed = {'runtime/Attributes.h', 'runtime/Collections.h', 'runtime/Entity.h', 'runtime/LinkQueue.h',
                  'runtime/Watch.h', *family.includes}
        out += [f'#include "{name}"' for name in sorted(needed)] + ['']
        scope = None
        for entity in family.entities:
            if entity.scope != scope:
                out += [f'}}  // namespace {scope}', ''] if scope else []
                out += [f'namespace {entity.scope} {{', '']
                scope = entity.scope
            out += self.declaration(entity) + ['']
        out += [f'}}  // namespace {scope}', '']
        return '\n'.join(out)

    def declaration(self, e):
        out = [f'// {line}'.rstrip() for line in e.comment]
        out += [f'class {e.name} : public Rix::Entity {{', 'public:']
        out += self.notifiee(e)
        constants = e.constants
        out += ['', f'  {"explicit " if len(constants) == 1 else ""}{e.name}({self.parameters(e)});',
                f'  ~{e.name}() override;',
                '  static Rix::Type const& rixType();',
                '  Rix::Type const& fwkType() const override { return rixType(); }',
                f'  using RixConstants = std::tuple<{", ".join(a.type for a in constants)}>;']
        key = e.key()
        if key:
            out.append(f'  {passed(key.type)} rixKey() const {{ return {key.name}_; }}')
            if key.type == 'Rix::Name' and key.name == 'name':
                out.append('  Rix::Name name() const override { return name_; }')
        for a in e.attributes:
            out += self.operations(e, a)
        out += self.observer(e)
        out += ['', '  // Calls visit(descriptor) for every attribute, in order.', '  template <class Visit>',
                '  static void rixVisit(Visit&& visit) {']
        out += [f'    visit({self.descriptor(e, i, a)});' for i, a in enumerate(e.attributes)]
        if not e.attributes:
            out += ['    static_cast<void>(visit);']
        out += ['  }', '', ' private:']
        out += [f'  void rixNotify{a.cap}({passed(a.type)} key);' for a in e.watched if a.keyed]
        out += [f'  void rixNotify{a.cap}();' for a in e.watched if a.kind == 'owned']
        if any(a.keyed or a.kind == 'owned' for a in e.watched):
            out += ['']
        for a in e.attributes:
            out.append(f'  {self.member(a)};')
        out += ['};']
        return out

    def notifiee(self, e):
        out = ['  class NotifieeConst : public Rix::NotifieeBase {', '   public:']
        for a in e.watched:
            if a.keyed:
                out += [f'    virtual void on{a.cap}({passed(a.type)}) {{}}',
                        f'    virtual void on{a.cap}rixImmediate() {{ on{a.cap}(); }}',
                        f'    virtual void on{a.cap}();']
            else:
                out.append(f'    virtual void on{a.cap}() {{}}')
                if a.kind == 'queue':
                    out.append(f'    virtual void on{a.cap}Metadata() {{}}')
        out += ['', '    void rixSweepCollections(Rix::Interest interest);', '  };',
                '  using Notifiee = NotifieeConst;',
                f'  static constexpr Rix::Interest rixCollections = {self.collections(e)};',
                '  template <class D>', '  static constexpr Rix::Interest rixInterestOf() {',
                '    Rix::Interest interest = 0;']
        for i, a in enumerate(e.attributes):
            if a.kind in ('key', 'const'):
                continue
            if a.keyed:
                test = (f'!requires {{ requires std::is_same_v<decltype(Rix::keyedNotification<{passed(a.type)}>'
                        f'(&D::on{a.cap})), void (NotifieeConst::*)({passed(a.type)})>; }}')
            else:
                test = f'!std::is_same_v<decltype(&D::on{a.cap}), void (NotifieeConst::*)()>'
            out.append(f'    if constexpr ({test}) interest |= Rix::interestBit({i});')
        out += ['    return interest;', '  }']
        return out

    def collections(self, e):
        bits = [f'Rix::interestBit({i})' for i, a in enumerate(e.attributes) if a.keyed]
        return ' | '.join(bits) or '0'

    def observer(self, e):
        """The watcher that hears of everything, for whoever watches records of any kind."""
        out = ['', '  // Forwards every notification to `sink` as changed(attribute) or changed(attribute, key).',
               '  template <class Sink>', '  class RixObserver final : public NotifieeConst {', '   public:',
               '    explicit RixObserver(Sink& sink) : sink_(sink) {}',
               f'    void notifierIs({e.name}* entity) {{ this->rixNotifierIs(entity, 0xffff, false); }}',
               '    Rix::Interest rixInterest() const override { return 0xffff; }']
        for i, a in enumerate(e.attributes):
            if a.keyed:
                out.append(f'    void on{a.cap}({passed(a.type)} key) override {{ sink_.changed({i}, key); }}')
            elif a.kind not in ('key', 'const'):
                out.append(f'    void on{a.cap}() override {{ sink_.changed({i}); }}')
        return out + ['', '   private:', '    Sink& sink_;', '  };']

    def operations(self, e, a):
        n, cap, i = a.name, a.cap, e.attributes.index(a)
        out = ['']
        writer = f' Written by {a.writer}.' if a.writer else ''
        comment = (a.comment + ('.' if a.comment and a.comment[-1] not in '.?' else '') if a.comment else '') + writer
        if comment.strip():
            out.append(f'  // {comment.strip()}')
        if a.kind in ('key', 'const'):
            if not (n == 'name' and a.type == 'Rix::Name' and a.kind == 'key'):
                out.append(f'  {passed(a.type)} {n}() const {{ return {n}_; }}')
        elif a.kind in ('plain', 'ref'):
            t = a.type if a.kind == 'plain' else f'Rix::Ptr<{a.type} const>'
            out += [f'  {passed(t)} {n}() const {{ return {n}_; }}',
                    f'  void {n}Is({passed(t)} value) {{',
                    f'    if ({n}_ == value) return;', f'    {n}_ = value;',
                    f'    rixNotify<NotifieeConst>({i}, [](NotifieeConst& notifiee) {{ notifiee.on{cap}(); }});', '  }',
                    f'  void {n}Del() {{ {n}Is({t}{{}}); }}']
            if 'counter' in a.flags:
                out.append(f'  void {n}Inc({a.type} by) {{ {n}Is(static_cast<{a.type}>({n}_ + by)); }}')
        elif a.kind == 'owned':
            target = self.entities[a.type]
            ps = self.parameters(target)
            out += [f'  {a.type}* {n}() {{ return {n}_.get(); }}',
                    f'  {a.type} const* {n}() const {{ return {n}_.get(); }}',
                    f'  // Returns what stands, or makes it.', f'  {a.type}* {n}Is({ps});', f'  void {n}Del();',
                    '  // Takes a finished one. None may stand.', f'  void {n}Adopt(Rix::Ptr<{a.type}> const& made);']
        elif a.kind == 'entities':
            target = self.entities[a.member]
            out += [f'  {a.member}* {n}({passed(a.type)} key) {{ return {n}_.find(key); }}',
                    f'  {a.member} const* {n}({passed(a.type)} key) const {{ return {n}_.find(key); }}',
                    f'  U32 {n}s() const {{ return {n}_.size(); }}',
                    f'  auto const& {n}Iterator() const {{ return {n}_; }}',
                    '  // Finds or makes the member; what stands is not replaced.',
                    f'  {a.member}* {n}Is({self.parameters(target)});',
                    '  // Takes a finished member, whose key must be free.', f'  void {n}Adopt(Rix::Ptr<{a.member}> const& made);',
                    f'  void {n}Del({passed(a.type)} key);', f'  void {n}DelAll();',
                    f'  void {n}Notify({passed(a.type)} key) {{ rixNotify{cap}(key); }}']
        elif a.kind == 'refs':
            p = self.pointer(a)
            out += [f'  {a.member}{" const" if a.constant_member else ""}* {n}({passed(a.type)} key) const {{ return {n}_.find(key); }}',
                    f'  U32 {n}s() const {{ return {n}_.size(); }}',
                    f'  auto const& {n}Iterator() const {{ return {n}_; }}',
                    '  // Adds the member under its own key, or replaces it. Null: RangeException.',
                    f'  void {n}Is({p} const& value);',
                    f'  void {n}Del({passed(a.type)} key);', f'  void {n}DelAll();',
                    f'  void {n}Notify({passed(a.type)} key) {{ rixNotify{cap}(key); }}']
        elif a.kind == 'values':
            out += [f'  {passed(a.member)} {n}({passed(a.type)} key) const {{ return {n}_.get(key); }}',
                    f'  bool {n}Has({passed(a.type)} key) const {{ return {n}_.find(key) != nullptr; }}',
                    f'  U32 {n}s() const {{ return {n}_.size(); }}',
                    f'  auto const& {n}Iterator() const {{ return {n}_; }}',
                    f'  void {n}Is({passed(a.type)} key, {passed(a.member)} value);',
                    f'  void {n}Del({passed(a.type)} key);', f'  void {n}DelAll();',
                    f'  void {n}Notify({passed(a.type)} key) {{ rixNotify{cap}(key); }}']
        else:
            out += [f'  Rix::LinkQueue<{a.type}> const& {n}() const {{ return {n}_; }}',
                    f'  U32 {n}s() const {{ return {n}_.size(); }}',
                    f'  Rix::LinkQueueMetadata {n}Metadata() const {{ return {n}_.metadata(); }}',
                    f'  void {n}MetadataIs(Rix::LinkQueueMetadata const& value);',
                    f'  void {n}Is(U32 index, {passed(a.type)} value);',
                    f'  void {n}Enq({passed(a.type)} value);', f'  {a.type} {n}Deq();', f'  void {n}DelAll();']
        return out

    def member(self, a):
        if a.kind in ('key', 'const'):
            return f'{a.type} const {a.name}_'
        if a.kind == 'plain':
            return f'{a.type} {a.name}_{{{a.default or ""}}}'
        if a.kind == 'ref':
            return f'Rix::Ptr<{a.type} const> {a.name}_'
        if a.kind == 'owned':
            return f'Rix::Ptr<{a.type}> {a.name}_'
        if a.kind == 'entities':
            return f'Rix::EntityMap<{a.type}, {a.member}> {a.name}_'
        if a.kind == 'refs':
            return f'Rix::EntityMap<{a.type}, {a.member}{" const" if a.constant_member else ""}> {a.name}_'
        if a.kind == 'values':
            return f'Rix::ValueMap<{a.type}, {a.member}> {a.name}_'
        return f'Rix::LinkQueue<{a.type}> {a.name}_'

    def descriptor(self, e, i, a):
        c, n = e.name, a.name
        kind = {'key': 'constant', 'const': 'constant', 'ref': 'reference', 'refs': 'references'}.get(a.kind, a.kind)
        key, value = (a.type, a.member) if a.keyed else ('void', a.type)
        text = f'{a.type} -> {a.member}' if a.keyed else a.type
        given = [f'"{n}"', f'"{text}"', str(i), 'true' if 'rewritten' in a.flags else 'false',
                 f'[]({c} const& entity) -> auto const& {{ return entity.{n}_; }}']
        adopt = f'[]({c}& entity, Rix::Ptr<{value}> const& made) {{ entity.{n}Adopt(made); }}'
        make = (f'[]({c}& entity, typename {value}::RixConstants const& given) {{ '
                f'return std::apply([&](auto const&... each) {{ return entity.{n}Is(each...); }}, given); }}')
        remove = f'[]({c}& entity, {passed(a.type)} key) {{ entity.{n}Del(key); }}'
        if a.kind == 'plain':
            given += [f'[]({c}& entity, {passed(a.type)} value) {{ entity.{n}Is(value); }}']
        elif a.kind == 'owned':
            given += [make, f'[]({c}& entity) {{ entity.{n}Del(); }}', adopt]
        elif a.kind == 'entities':
            given += [make, remove, adopt]
        elif a.kind == 'values':
            given += [f'[]({c}& entity, {passed(a.type)} key, {passed(a.member)} value) {{ entity.{n}Is(key, value); }}', remove]
        return f'Rix::attribute<Rix::AttributeKind::{kind}, {c}, {key}, {value}>({", ".join(given)})'

    # --- source ------------------------------------------------------------------------------------------------

    def source(self, family):
        out = [f'// Generated by tools/modelgen from {family.name}.model; do not edit.',
               f'#include "model/gen/{family.name}.h"', '', '#include "model/ValueCodec.h"',
               '#include "runtime/RecordOf.h"', '#include "runtime/TypeOf.h"', '']
        scope = None
        for entity in family.entities:
            if entity.scope != scope:
                out += [f'}}  // namespace {scope}', ''] if scope else []
                out += [f'namespace {entity.scope} {{', '']
                scope = entity.scope
            out += self.definition(entity) + ['']
        out += [f'}}  // namespace {scope}', '']
        out += ['namespace {', '// Known by name from the start of the process.', 'Rix::TypeRegistration const registrations[] = {']
        out += [f'  Rix::TypeRegistration({e.full}::rixType()),' for e in family.entities]
        out += ['};', '}  // namespace', '']
        return '\n'.join(out)

    def definition(self, e):
        c = e.name
        init = [f'{a.name}_({a.name})' for a in e.constants]
        out = [f'{c}::{c}({self.parameters(e)})' + (' : ' + ', '.join(init) if init else '') + ' {']
        out += [f'  {a.name}Is();' for a in e.watched if 'present' in a.flags]
        out += ['}', f'{c}::~{c}() = default;', '',
                f'Rix::Type const& {c}::rixType() {{',
                f'  static Rix::Type const type = Rix::typeOf<{c}>("{e.full}", Rix::recordOfClass<{c}>);', '  return type;', '}', '',
                f'void {c}::NotifieeConst::rixSweepCollections(Rix::Interest interest) {{']
        keyed = [(i, a) for i, a in enumerate(e.attributes) if a.keyed]
        out += [f'  if ((interest & Rix::interestBit({i})) != 0) on{a.cap}();' for i, a in keyed] or ['  static_cast<void>(interest);']
        out += ['}']
        for i, a in enumerate(e.attributes):
            n, cap = a.name, a.cap
            if a.keyed:
                key = 'Rix::memberKey(member)'
                out += ['', f'void {c}::NotifieeConst::on{cap}() {{',
                        f'  Rix::Ptr<{c}> notifier(static_cast<{c}*>(rixNotifier()));', '  if (!notifier) return;',
                        f'  Rix::sweepKeys(notifier->{n}_, [this]({passed(a.type)} key) {{ on{cap}(key); }});', '}',
                        f'void {c}::rixNotify{cap}({passed(a.type)} key) {{',
                        f'  rixNotify<NotifieeConst>({i}, [&](NotifieeConst& notifiee) {{ notifiee.on{cap}(key); }});', '}',
                        f'void {c}::{n}Del({passed(a.type)} key) {{',
                        f'  {n}_.del(key, [this]({passed(a.type)} gone) {{ rixNotify{cap}(gone); }});', '}',
                        f'void {c}::{n}DelAll() {{',
                        f'  {n}_.delAll([this]({passed(a.type)} gone) {{ rixNotify{cap}(gone); }});', '}']
            if a.kind == 'entities':
                target = self.entities[a.member]
                args = ', '.join(x.name for x in target.constants)
                out += [f'{a.member}* {c}::{n}Is({self.parameters(target)}) {{',
                        f'  return {n}_.is({target.key().name}, [this]({passed(a.type)} made) {{ rixNotify{cap}(made); }}, {args});', '}',
                        f'void {c}::{n}Adopt(Rix::Ptr<{a.member}> const& made) {{',
                        f'  {n}_.adopt(made, [this]({passed(a.type)} key) {{ rixNotify{cap}(key); }});', '}']
            elif a.kind == 'refs':
                out += [f'void {c}::{n}Is({self.pointer(a)} const& value) {{',
                        f'  {n}_.refer(value, "null {n} parameter to mutator for {e.full}::{n} not allowed\\"",',
                        f'           [this]({passed(a.type)} changed) {{ rixNotify{cap}(changed); }});', '}']
            elif a.kind == 'values':
                out += [f'void {c}::{n}Is({passed(a.type)} key, {passed(a.member)} value) {{',
                        f'  {n}_.is(key, value, [this]({passed(a.type)} changed) {{ rixNotify{cap}(changed); }});', '}']
            elif a.kind == 'owned':
                target = self.entities[a.type]
                args = ', '.join(x.name for x in target.constants)
                out += ['', f'void {c}::rixNotify{cap}() {{',
                        f'  rixNotify<NotifieeConst>({i}, [](NotifieeConst& notifiee) {{ notifiee.on{cap}(); }});', '}',
                        f'{a.type}* {c}::{n}Is({self.parameters(target)}) {{', f'  if (!{n}_) {{',
                        f'    {n}_ = Rix::make<{a.type}>({args});', f'    rixNotify{cap}();', '  }', f'  return {n}_.get();', '}',
                        f'void {c}::{n}Del() {{', f'  if (!{n}_) return;',
                        f'  Rix::Ptr<{a.type}> gone;', f'  gone.swap({n}_);', f'  rixNotify{cap}();', '}',
                        f'void {c}::{n}Adopt(Rix::Ptr<{a.type}> const& made) {{', f'  RIX_ASSERT(made && !{n}_);',
                        f'  {n}_ = made;', f'  rixNotify{cap}();', '}']
            elif a.kind == 'queue':
                both = (f'  rixNotify<NotifieeConst>({i}, [](NotifieeConst& notifiee) {{\n    notifiee.on{cap}();\n'
                        f'    notifiee.on{cap}Metadata();\n  }});')
                out += ['', f'void {c}::{n}MetadataIs(Rix::LinkQueueMetadata const& value) {{', f'  {n}_.metadataIs(value);', both, '}',
                        f'void {c}::{n}Is(U32 index, {passed(a.type)} value) {{', f'  {n}_.is(index, value);', both, '}',
                        f'void {c}::{n}Enq({passed(a.type)} value) {{', f'  {n}_.enq(value);', both, '}',
                        f'{a.type} {c}::{n}Deq() {{', f'  {a.type} value = {n}_.deq();', both, '  return value;', '}',
                        f'void {c}::{n}DelAll() {{', f'  if ({n}_.empty()) return;', f'  {n}_.delAll();', both, '}']
        return out


def formatted(path, text):
    result = subprocess.run(['clang-format', f'--assume-filename={path}'], input=text, capture_output=True, text=True,
                            check=True, cwd=ROOT)
    return result.stdout


def main():
    families = [Family(path) for path in sorted(MODEL.glob('*.model'))]
    printer = Printer(families)
    wanted = {}
    for family in families:
        for path, text in ((MODEL / 'gen' / f'{family.name}.h', printer.header(family)),
                           (MODEL / 'gen' / f'{family.name}.cpp', printer.source(family))):
            wanted[path] = formatted(path, text)
    stale = [p for p, text in wanted.items() if not p.exists() or p.read_text() != text]
    stale += [p for p in (MODEL / 'gen').glob('*.*') if p.suffix in ('.h', '.cpp') and p not in wanted]
    if '--check' in sys.argv[1:]:
        for path in stale:
            print(f'{path.relative_to(ROOT)}: not up to date; run ./dev gen')
        return 1 if stale else 0
    for path in stale:
        if path in wanted:
            path.parent.mkdir(exist_ok=True)
            path.write_text(wanted[path])
        else:
            path.unlink()
    return 0


if __name__ == '__main__':
    sys.exit(main())
