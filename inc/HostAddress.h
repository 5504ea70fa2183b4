// One IPv4 or IPv6 address.
#ifndef MURN_HOST_ADDRESS_H
#define MURN_HOST_ADDRESS_H

#include <netinet/in.h>

#include <cstddef>
#include <string>
#include <vector>

#include "Export.h"

namespace Murn {

/// An IPv4 or IPv6 address as a plain value of 32 bytes, without heap storage. It may carry a port, flow information
/// and a scope inside, when it was made from a socket address or filled by Socket::recvfrom(); nothing here reports
/// them, and comparisons ignore them.
///
/// Nothing is logged and nothing throws of its own: what cannot be parsed is Invalid, what cannot be resolved is
/// Unspecified. One thread at a time, not locked; the static operations may be called from any thread.
class MURN_API HostAddress {
public:
    /// The kinds of address. The values are the platform's address families, so that a kind can be handed to the
    /// resolver as it is.
    enum Type : int {
        Unspecified = 0,  ///< No address yet, or a look-up that failed; as a resolver's hint, any kind.
        Invalid = 1,      ///< Made from something that is no address.
        IPv4 = 2,         ///< `AF_INET`, four bytes.
        IPv6 = 10         ///< `AF_INET6`, sixteen bytes.
    };

    /// Addresses that have a name.
    enum SpecialAddress : int {
        Null = 0,           ///< No address: Unspecified.
        LoopbackIPv4 = 1,   ///< 127.0.0.1
        LoopbackIPv6 = 2,   ///< ::1
        BroadcastIPv4 = 3,  ///< 255.255.255.255
        AnyIPv4 = 4,        ///< 0.0.0.0
        AnyIPv6 = 5         ///< ::
    };

    /// An Unspecified address.
    HostAddress();
    /// @param special  one of the names; any other value gives an Unspecified address
    HostAddress(SpecialAddress special);
    /// Copies the address with its port, flow information and scope.
    HostAddress(const HostAddress& other);
    /// Parses numeric text (`inet_pton`), as IPv4 and then as IPv6. Host names are not looked up; see FromHostName().
    /// @param text  such as "192.168.1.10" or "fe80::1"; anything else gives an Invalid address,
    ///              and so does an address with a zero byte behind it
    HostAddress(const std::string& text);
    /// Copies a socket address whole: port, flow information and scope included.
    /// @param address  not null; of the family `AF_INET` or `AF_INET6`, any other gives an Invalid address
    HostAddress(const sockaddr* address);
    /// Takes the bare bytes of an address.
    /// @param type   IPv4 or IPv6; any other gives an Invalid address
    /// @param bytes  four or sixteen bytes in network order
    HostAddress(Type type, const void* bytes);

    /// Does what the copy constructor does.
    HostAddress& operator=(const HostAddress& other);

    /// @return whether this is an IPv4 or IPv6 address
    bool isValid() const;
    Type type() const;

    /// @return the platform's textual form (`inet_ntop`) without a port; empty for an address that is not valid
    std::string toString() const;
    /// Writes the bare bytes of the address in network order.
    /// @param buffer  where they go
    /// @param length  the room in bytes; then the number written, 4 or 16
    /// @return false when the room is too small or the address not valid; then nothing is changed
    bool toBytes(void* buffer, std::size_t& length) const;

    /// Compares kind and address bytes. Two addresses that are not valid are never equal, on purpose: "no address" is
    /// not the same host as "no address".
    bool operator==(const HostAddress& other) const;
    bool operator!=(const HostAddress& other) const;

    /// For IPv4 addresses only; the kinds are not checked.
    /// @param other  the address to compare with
    /// @param mask   the network mask
    /// @return whether both addresses agree in every bit that is set in the mask
    bool isInSameSubNetworkIPv4(const HostAddress& other, const HostAddress& mask) const;

    /// Any thread. Looks a host name up (`getaddrinfo`); blocks until the resolver answers.
    /// @param name    a host name, or numeric text
    /// @param family  the kind of address wanted; Unspecified for any
    /// @return the resolver's first address; Unspecified when the look-up failed
    static HostAddress FromHostName(const std::string& name, Type family);
    /// Any thread. Looks all addresses of a host up, as FromHostName() does.
    /// @param name    a host name, or numeric text
    /// @param family  the kind of address wanted; Unspecified for any
    /// @return the addresses in the resolver's order; empty when the look-up failed. The resolver tends to give an
    ///         address once for each type of socket, and these repeats are kept on purpose.
    static std::vector<HostAddress> ResolveHostName(const std::string& name, Type family);

private:
    friend class Socket;

    // The longer one first: initialising a union clears as much as its first member covers.
    union Storage {
        sockaddr_in6 ipv6;
        sockaddr_in ipv4;
    };

    Type _type;
    Storage _address;  // bytes that the kind of address does not use are zero
};

}  // namespace Murn

#endif
