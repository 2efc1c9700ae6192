"""pyftpdlib_server.py ADDRESS PORT FOLDER USER PASSWORD [CERTIFICATE]: an FTP server of Python's FTP library. With a certificate,
and its key in the same file, it demands encryption."""

import logging
import sys

from OpenSSL import SSL
from pyftpdlib.authorizers import DummyAuthorizer
from pyftpdlib.handlers import FTPHandler, TLS_DTPHandler, TLS_FTPHandler
from pyftpdlib.servers import FTPServer


class ResumingData(TLS_DTPHandler):
    """A data connection that has to resume the TLS session of the control connection."""

    def readable(self):
        # The library closes a data connection on which a client begins its handshake before it asks for a file.
        return self._ssl_accepting or super().readable()

    def handle_ssl_established(self):
        if not SSL._lib.SSL_session_reused(self.socket._ssl):
            self._resp = ("425 Resume the session of the control connection.", logging.warning)
            self.close()

    def handle_close(self):
        # Nor is there anything to answer on a connection that was closed before a file was asked for.
        if self._initialized:
            super().handle_close()
        else:
            self.close()


address, port, folder, user, password, *certificate = sys.argv[1:]


class Handler(TLS_FTPHandler if certificate else FTPHandler):
    authorizer = DummyAuthorizer()
    auth_failed_timeout = 0
    if certificate:
        dtp_handler = ResumingData
        certfile = keyfile = certificate[0]
        tls_control_required = tls_data_required = True


Handler.authorizer.add_user(user, password, homedir=folder, perm="elradfmwMT")
logging.basicConfig(level=logging.WARNING)
FTPServer((address, int(port)), Handler).serve_forever()
