// The least that serves a ping over D-Bus with the system's own library: takes the socket that it was started
// with, and answers one connection after the other. What the daemon's start is compared with.

#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-id128.h>

namespace {

int ping(sd_bus_message* call, void* /*data*/, sd_bus_error* /*error*/) {
  return sd_bus_reply_method_return(call, "s", "pong");
}

const sd_bus_vtable kMethods[] = {SD_BUS_VTABLE_START(0),
                                  SD_BUS_METHOD("Ping", "", "s", ping, SD_BUS_VTABLE_UNPRIVILEGED),
                                  SD_BUS_VTABLE_END};

void serve(int peer) {
  sd_bus* bus = nullptr;
  sd_id128_t id{};
  if (sd_bus_new(&bus) < 0 || sd_id128_randomize(&id) < 0) return;
  sd_bus_set_fd(bus, peer, peer);
  sd_bus_set_server(bus, 1, id);
  sd_bus_negotiate_fds(bus, 0);
  sd_bus_add_object_vtable(bus, nullptr, "/com/molvane/helper", "com.molvane.helper", kMethods, nullptr);
  if (sd_bus_start(bus) >= 0) {
    for (int done = 0; done >= 0;) {
      done = sd_bus_process(bus, nullptr);
      if (done == 0) done = sd_bus_wait(bus, UINT64_MAX);
    }
  }
  sd_bus_close_unref(bus);
}

}  // namespace

int main() {
  if (sd_listen_fds(1) != 1) return 1;
  for (;;) {
    const int peer = accept4(SD_LISTEN_FDS_START, nullptr, nullptr, SOCK_CLOEXEC);
    if (peer < 0) return 1;
    serve(peer);
  }
}
