#ifndef VASK_PEER_LINK_H
#define VASK_PEER_LINK_H

#include <glib.h>

#include <vector>

class vask_socket;

// A connection: its descriptor and the channel on it. A server and the socket that it hands out are
// on the same connection, and so are a socket and its copy. Whoever closes it takes it away from
// all of them, so that nobody reads or closes a descriptor that may be a stranger's by then.
class vask_peer_link {
public:
    explicit vask_peer_link(int fd);
    ~vask_peer_link();
    vask_peer_link(const vask_peer_link&) = delete;
    vask_peer_link& operator=(const vask_peer_link&) = delete;

    int fd() const { return m_fd; }

    // Null until there is one; stays the link's. A further one takes the place of the former for
    // all sockets.
    GIOChannel* channel() const { return m_channel; }
    void set_channel(GIOChannel* channel);

    void join(vask_socket* socket);
    void leave(vask_socket* socket);

    // From now on the descriptor is somebody else's to close, until one of our sockets uses it: by
    // saying so, by giving it a channel or by joining another one.
    void release() { m_is_ours = false; }
    void use() { m_is_ours = true; }
    bool is_used() const { return m_channel != nullptr || m_sockets.size() > 1; }

    // Closes it and has every socket on it forget it.
    void close(bool flush);

private:
    int m_fd;
    GIOChannel* m_channel;
    bool m_is_ours;
    std::vector<vask_socket*> m_sockets;
};

#endif
