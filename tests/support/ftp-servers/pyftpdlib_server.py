"""An FTP server of Python's FTP library, in this process."""

import logging

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


def serve(address, folder, user, password, tls, certificate):
    """Serves without end. tls is "off", "optional" or "required"; certificate is a file with the key, too."""
    base = FTPHandler if tls == "off" else TLS_FTPHandler

    class Handler(base):
        authorizer = DummyAuthorizer()
        auth_failed_timeout = 0
        if tls != "off":
            dtp_handler = ResumingData
            certfile = keyfile = certificate
            tls_control_required = tls_data_required = tls == "required"

    Handler.authorizer.add_user(user, password, homedir=folder, perm="elradfmwMT")
    logging.basicConfig(level=logging.WARNING)
    FTPServer(address, Handler).serve_forever()
