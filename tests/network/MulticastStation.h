// A host of the lab with a multicast socket that sends, and hears whatever comes.
#ifndef KXPAL_TESTS_MULTICAST_STATION_H
#define KXPAL_TESTS_MULTICAST_STATION_H

#include <map>
#include <string>
#include <vector>

#include "NetworkLab.h"

/// Drives a multicast socket on a host of the lab. A thread over there receives from the first registration on and
/// keeps what it hears, until it is woken.
class MulticastStation {
public:
    using Texts = std::vector<std::string>;

    MulticastStation(const NetworkLab& lab, std::size_t host);

    /// The interfaces that the library lists over there, such as "eth0 10.90.0.1".
    Texts interfaces();
    /// MulticastUdpSocket::registerOnMulticastGroup().
    /// @param groups  in numbers with dots
    int registerOn(const Texts& groups);
    /// MulticastUdpSocket::sendto().
    int send(const std::string& text);
    /// Sends the datagrams "#first" to "#last".
    /// @return how many of them were sent with success
    int sendNumbers(int first, int last);

    /// What was heard since the last forget(), without numbers: sender and text, such as "10.90.0.1 hello", sorted.
    Texts heard();
    void forget();
    /// Waits until a text was heard so many times.
    bool hears(const std::string& senderAndText, std::size_t times);

    /// Begins to wait until so many numbers were heard, all in all.
    void beginToHearNumbers(int count);
    /// Waits for the end of that.
    bool heardNumbers();
    /// How many numbers from 0 on were heard exactly so many times from each of the senders.
    int numbersHeard(const Texts& senders, int times);

    /// What the library logged since the last time.
    Texts warnings();
    /// Waits until the receiving thread waits for data, wakes it in either way and waits for its end.
    /// @return what recvfrom() returned last
    int wakeUp();
    int close();
    /// MulticastUdpSocket::recvfrom(), on the thread that asks.
    int receive();
    /// What the process printed on standard output.
    std::string printed();
    /// Destroys the socket and ends the process.
    /// @return its status
    int end();

private:
    LabProcess _process;
};

#endif
