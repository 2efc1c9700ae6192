"""The configurations of the FTP servers: the files beside this one, which are as in production, and what a test changes."""

import os
import socket

from private_machine import ACCOUNT

HERE = os.path.dirname(os.path.realpath(__file__))
USER, PASSWORD = os.environ.get("FTP_SERVER_USER", "u"), os.environ.get("FTP_SERVER_PASSWORD", "p")
# As the private machine has them.
STORE, UNPACKED, CERTIFICATE = "/srv/ftp", "/opt", "/etc/ssl/private/ftp.pem"


def template(name):
    with open(os.path.join(HERE, name), encoding="utf-8") as file:
        return file.read()


def common_files(hashed):
    """The system files that any of the servers looks at."""
    system = ("root:x:0:0", "ftp:x:101:101", "proftpd:x:102:65534", "pure-ftpd:x:103:65534", "nobody:x:65534:65534")
    passwd = [f"{account}::/nonexistent:/usr/sbin/nologin" for account in system]
    return {
        "/etc/passwd": "\n".join([*passwd, f"{USER}:x:{ACCOUNT}:{ACCOUNT}::{STORE}:/bin/sh"]) + "\n",
        "/etc/shadow": f"{USER}:{hashed}:20000:0:99999:7:::\n",
        "/etc/group": f"root:x:0:\nftp:x:101:\n{USER}:x:{ACCOUNT}:\nnogroup:x:65534:\n",
        "/etc/nsswitch.conf": "passwd: files\ngroup: files\nshadow: files\nhosts: files\n",
        "/etc/hosts": f"127.0.0.1 localhost {socket.gethostname()}\n",
    }


def vsftpd(address, port, tls, _hashed):
    settings = [f"listen_address={address}", f"listen_port={port}"]
    settings += {"off": ["ssl_enable=NO"], "optional": ["force_local_logins_ssl=NO", "force_local_data_ssl=NO"],
                 "required": []}[tls]
    files = {"/etc/vsftpd.conf": template("vsftpd.conf") + "\n".join(settings) + "\n",
             "/etc/pam.d/vsftpd": template("vsftpd.pam"), "/run/vsftpd/empty/.keep": ""}
    return files, [f"{UNPACKED}/usr/sbin/vsftpd", "/etc/vsftpd.conf"]


def proftpd(address, port, tls, hashed):
    settings = [f"DefaultAddress {address}", f"Port {port}", "SocketBindTight on", "DelayEngine off"]
    text = template("proftpd.conf").replace("/usr/lib/proftpd", f"{UNPACKED}/usr/lib/proftpd")
    # The first of a setting counts, and those for TLS demand the certificate even where it is off.
    left_out = {"off": "TLS", "optional": "TLSRequired", "required": "none"}[tls]
    text = "".join(line for line in text.splitlines(keepends=True) if not line.startswith(left_out))
    files = {"/etc/proftpd/proftpd.conf": text + "\n".join(settings) + "\n",
             "/etc/proftpd/ftpd.passwd": f"{USER}:{hashed}:{ACCOUNT}:{ACCOUNT}::{STORE}:/bin/false\n",
             "/var/log/proftpd/.keep": "", "/run/proftpd/.keep": ""}
    return files, [f"{UNPACKED}/usr/sbin/proftpd", "--nodaemon", "--config", "/etc/proftpd/proftpd.conf"]


def pureftpd(address, port, tls, hashed):
    settings = [f"Bind {address},{port}"]
    settings += {"off": ["TLS 0"], "optional": ["TLS 1"], "required": []}[tls]
    files = {"/etc/pure-ftpd/pure-ftpd.conf": template("pure-ftpd.conf") + "\n".join(settings) + "\n",
             "/etc/pure-ftpd/pureftpd.passwd": f"{USER}:{hashed}:{ACCOUNT}:{ACCOUNT}::{STORE}/./::::::::::::\n"}
    make_accounts = f"{UNPACKED}/usr/bin/pure-pw mkdb /etc/pure-ftpd/pureftpd.pdb -f /etc/pure-ftpd/pureftpd.passwd"
    serve = f"exec {UNPACKED}/usr/sbin/pure-ftpd /etc/pure-ftpd/pure-ftpd.conf"
    return files, ["/bin/sh", "-c", f"{make_accounts} && {serve}"]


# Each gives its files, path to text, and its command.
KINDS = {"vsftpd": vsftpd, "proftpd": proftpd, "pureftpd": pureftpd}
