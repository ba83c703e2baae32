"""Signatures of GL and EGL entry points, read from the installed Khronos files.

GL commands come from gl.xml; EGL commands from the prototypes and PFN typedefs
of EGL/egl.h and EGL/eglext.h; names that neither holds come from supplement.txt.
"""
import re
import xml.etree.ElementTree as ET


class Param:
    def __init__(self, ctype, name):
        self.ctype = ctype.strip()
        self.name = name

    def is_pointer(self):
        return '*' in self.ctype

    def is_float(self):
        return self.ctype in ('GLfloat', 'GLclampf', 'GLdouble', 'GLclampd')


class Command:
    def __init__(self, name, ret, params):
        self.name = name
        self.ret = ret.strip()
        self.params = params

    def returns(self):
        return self.ret != 'void'

    def decl_params(self):
        if not self.params:
            return 'void'
        return ', '.join(f'{p.ctype} {p.name}' for p in self.params)

    def arg_names(self):
        return ', '.join(p.name for p in self.params)

    def arg_types(self):
        return ', '.join(p.ctype for p in self.params)

    def fn_type(self):
        return f'{self.ret} (*)({self.arg_types() or "void"})'


def _text(elem):
    return ''.join(elem.itertext())


def read_gl(path):
    root = ET.parse(path).getroot()
    cmds = {}
    for c in root.find('commands').findall('command'):
        proto = c.find('proto')
        name = proto.find('name').text
        ret = _text(proto)[: -len(name)]
        params = []
        for p in c.findall('param'):
            pname = p.find('name').text
            ptype = _text(p)[: -len(pname)]
            params.append(Param(ptype, _safe(pname)))
        cmds[name] = Command(name, ret, params)
    return cmds


def gl_typedefs(path):
    """The C typedef lines of gl.xml's <types> block that the generated code needs."""
    root = ET.parse(path).getroot()
    out = []
    for t in root.find('types').findall('type'):
        text = _text(t).strip()
        if not text.startswith('typedef'):
            continue
        if t.get('api') or 'GLhandleARB' in text:
            continue
        out.append(text.replace('APIENTRY', ''))
    return out


_RESERVED = {'near', 'far', 'template', 'class', 'new', 'delete', 'namespace'}


def _safe(name):
    return name + '_' if name in _RESERVED else name


def _parse_params(text):
    text = ' '.join(text.split())
    if text in ('', 'void'):
        return []
    params = []
    for i, raw in enumerate(text.split(',')):
        raw = raw.strip()
        m = re.match(r'^(.*?[\s\*])([A-Za-z_][A-Za-z0-9_]*)$', raw)
        if m and m.group(1).strip() not in ('', 'const', 'struct'):
            params.append(Param(m.group(1), _safe(m.group(2))))
        else:
            params.append(Param(raw, f'arg{i}'))
    return params


def read_egl(paths):
    cmds = {}
    proto = re.compile(r'EGLAPI\s+(.+?)\s*EGLAPIENTRY\s+(egl\w+)\s*\((.*?)\);', re.S)
    pfn = re.compile(r'typedef\s+(.+?)\s*\(EGLAPIENTRYP\s+PFN(EGL\w+)PROC\)\s*\((.*?)\);', re.S)
    for path in paths:
        text = open(path).read()
        for ret, name, params in proto.findall(text):
            cmds[name] = Command(name, ret, _parse_params(params))
        for ret, upper, params in pfn.findall(text):
            # PFN typedef names upper-case the command; the prototype pass gives the
            # real spelling, so keep the typedef only for names it did not see.
            cmds.setdefault(upper, Command(upper, ret, _parse_params(params)))
    return cmds


def read_supplement(path):
    cmds = {}
    for line in open(path):
        line = line.split('#', 1)[0].strip()
        if not line:
            continue
        m = re.match(r'^(.+?)\s*\b((?:gl|egl)\w+)\s*\((.*)\)\s*;?$', line)
        if not m:
            raise SystemExit(f'supplement: cannot read "{line}"')
        cmds[m.group(2)] = Command(m.group(2), m.group(1), _parse_params(m.group(3)))
    return cmds


def load(gl_xml, egl_headers, supplement):
    gl = read_gl(gl_xml)
    egl = read_egl(egl_headers)
    sup = read_supplement(supplement)

    def find(name):
        if name in sup:
            return sup[name]
        if name in gl:
            return gl[name]
        if name in egl:
            return egl[name]
        upper = name.upper()
        if upper in egl:
            c = egl[upper]
            return Command(name, c.ret, c.params)
        return None

    return find
