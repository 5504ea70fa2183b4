// An echo server on bare system calls: what there is to reach.
#ifndef KXPAL_BENCH_FLOOR_SERVER_H
#define KXPAL_BENCH_FLOOR_SERVER_H

/// Serves until the process is killed: one thread accepts, the others `poll` their share of the connections. Prints
/// the line "Listening on 127.0.0.1 port <port>" first.
/// @param threads  how many serve
/// @return the status to end the process with, when it cannot serve
int serveFloor(unsigned int threads);

#endif
