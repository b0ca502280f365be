/** The files that let a participant take part in a secured domain (DDS Security 1.1). */
#ifndef QDDSDOMAIN_SECURITY_H
#define QDDSDOMAIN_SECURITY_H

#include "qddsdomain/export.h"

QDDSDOMAIN_BEGIN

/**
 * The files are held against each other before anything is connected: all there and readable, the
 * certificates valid at this time, the participant's issued by the identity CA, the key its own,
 * governance and permissions signed by the permissions CA. What is wrong is an error that names the
 * file, and never the password or a key.
 *
 * Each is the path of a file, or the file's text itself where that begins with "-----BEGIN" or
 * "MIME-Version". All but `password` are needed. Certificates and keys are PEM, governance and
 * permissions are signed with S/MIME.
 */
struct DDS_SecuritySettings {
    /** Issues the certificates of all participants. */
    const char *identityCa;
    const char *certificate;
    /** The certificate's private key. */
    const char *key;
    /** Decrypts the key; null or "" if that is not encrypted. */
    const char *password;
    /** How the domain is protected, signed by the permissions CA. */
    const char *governance;
    const char *permissionsCa;
    /** What the participant may publish and subscribe to, signed by the permissions CA. */
    const char *permissions;
};

QDDSDOMAIN_END

#endif
