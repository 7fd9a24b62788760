#pragma once

class Endpoint;
class QObject;

// The roles a device can take, by the index of the role box and the stored TcpType. What differs
// per role besides its endpoint is text, untranslated in the context "TCPSettingWidget".
class EndpointFactory
{
public:
    struct Role
    {
        const char* name;
        // The open button while the device is closed, and while it is open.
        const char* openText;
        const char* closeText;
        // The log line of a failed open, with the stored address and port.
        const char* openFailed;
        Endpoint* (*make)(QObject* parent);
    };

    static int count();
    // Null for an index no role has.
    static const Role* role(int index);
    static Endpoint* make(int role, QObject* parent);
};
