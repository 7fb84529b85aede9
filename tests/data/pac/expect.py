#!/usr/bin/python3
"""Compares each .sids file here with what Samba's decoder finds in the .pac beside it, and makes those that are missing."""
import pathlib
import sys

from samba.dcerpc import krb5pac
from samba.ndr import ndr_unpack

for pac in sorted(pathlib.Path(__file__).parent.glob("*.pac")):
    info = {buffer.type: buffer.info for buffer in ndr_unpack(krb5pac.PAC_DATA, pac.read_bytes()).buffers}
    name = info[krb5pac.PAC_TYPE_LOGON_NAME]
    lines = [f"{name.account_name} {name.logon_time // 10**7 - 11644473600}"]
    if krb5pac.PAC_TYPE_LOGON_INFO in info:
        logon = info[krb5pac.PAC_TYPE_LOGON_INFO].info
        base, resource = logon.info3.base, logon.resource_groups
        extra = [str(sid.sid) for sid in logon.info3.sids or []] if base.user_flags & 0x20 else []
        sids = [f"{base.domain_sid}-{base.rid}" if base.rid else extra[0], f"{base.domain_sid}-{base.primary_gid}"]
        sids += [f"{base.domain_sid}-{group.rid}" for group in base.groups.rids] + extra
        if base.user_flags & 0x200:
            sids += [f"{resource.domain_sid}-{group.rid}" for group in resource.groups.rids]
        lines += dict.fromkeys(sids)
    file, text = pac.with_suffix(".sids"), "\n".join(lines) + "\n"
    if not file.exists():
        file.write_text(text)
    elif file.read_text() != text:
        sys.exit(f"expect: {file.name} is not what Samba reads in {pac.name}:\n{text}")
