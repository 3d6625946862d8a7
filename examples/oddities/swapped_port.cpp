// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <arpa/inet.h>
#include <stdio.h>
#include <vask_socket.h>

int main() {
    vask_client_socket client("127.0.0.1", VASK_SOCK_UDP, 0x1234, nullptr);
    client.start_connect();
    printf("%#x\n", static_cast<unsigned int>(client.get_peer_port()));
    printf("%#x\n", ntohs(static_cast<uint16_t>(client.get_peer_port())));
}
