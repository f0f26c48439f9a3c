#include "OmbrixPlatform/Network/Path/Detail/RouteTable.hpp"

#include <linux/if.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cstddef>
#include <unordered_set>

namespace ombrix::platform::detail {
namespace {

constexpr std::size_t kBufferBytes =
    std::size_t{32} * 1024;  // the largest part that the kernel sends of a dump
constexpr timeval kLongestAnswer{.tv_sec = 1, .tv_usec = 0};

Descriptor openNetlink(unsigned groups, int flags) {
  Descriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | flags, NETLINK_ROUTE));
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = groups;
  if (!socket ||
      ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return {};
  }
  return socket;
}

/// Asks for a table and calls `take` with each of its entries; false when that failed.
template <class Take>
bool dump(int socket, int type, Take take) {
  struct {
    nlmsghdr header;
    rtgenmsg body;
  } request{};
  request.header.nlmsg_len = NLMSG_LENGTH(sizeof request.body);
  request.header.nlmsg_type = static_cast<std::uint16_t>(type);
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.header.nlmsg_seq = static_cast<std::uint32_t>(type);
  request.body.rtgen_family = AF_UNSPEC;
  if (retrying([&] { return ::send(socket, &request, request.header.nlmsg_len, 0); }) < 0) {
    return false;
  }
  alignas(nlmsghdr) std::array<std::byte, kBufferBytes> buffer;
  while (true) {
    auto left = retrying([&] { return ::recv(socket, buffer.data(), buffer.size(), 0); });
    if (left <= 0) return false;
    // Not const: the kernel's macros cast that away.
    auto* message = reinterpret_cast<nlmsghdr*>(buffer.data());
    for (; NLMSG_OK(message, left); message = NLMSG_NEXT(message, left)) {
      if (message->nlmsg_seq != request.header.nlmsg_seq) continue;
      if (message->nlmsg_type == NLMSG_DONE) return true;
      if (message->nlmsg_type == NLMSG_ERROR) return false;
      take(*message);
    }
  }
}

using Links = std::unordered_set<int>;

void addLink(nlmsghdr& message, Links& usable) {
  if (message.nlmsg_type != RTM_NEWLINK) return;
  const auto& link = *static_cast<ifinfomsg*>(NLMSG_DATA(&message));
  constexpr unsigned kWanted = IFF_UP | IFF_RUNNING;
  if ((link.ifi_flags & (kWanted | IFF_LOOPBACK)) == kWanted) usable.insert(link.ifi_index);
}

bool isAlive(unsigned flags) noexcept { return (flags & (RTNH_F_DEAD | RTNH_F_LINKDOWN)) == 0; }

bool anyHopLeadsOut(rtattr* attribute, const Links& usable) {
  auto left = static_cast<long>(RTA_PAYLOAD(attribute));
  auto* hop = static_cast<rtnexthop*>(RTA_DATA(attribute));
  while (left >= static_cast<long>(sizeof *hop) && RTNH_OK(hop, left)) {
    if (isAlive(hop->rtnh_flags) && usable.contains(hop->rtnh_ifindex)) return true;
    left -= NLMSG_ALIGN(hop->rtnh_len);
    hop = RTNH_NEXT(hop);
  }
  return false;
}

/// Halves of the addresses of one family that routes lead to. Private networks replace a default
/// route by two halves, which leaves the old one as it was.
struct Halves {
  bool lower = false;
  bool upper = false;
};

/// Whether an entry of any table (private networks keep their own) goes over one of the links.
bool isUsable(nlmsghdr& message, const Links& usable) {
  auto* route = static_cast<rtmsg*>(NLMSG_DATA(&message));
  auto left = static_cast<long>(RTM_PAYLOAD(&message));
  rtattr* attribute = RTM_RTA(route);
  for (; RTA_OK(attribute, left); attribute = RTA_NEXT(attribute, left)) {
    if (attribute->rta_type == RTA_OIF &&
        usable.contains(*static_cast<int*>(RTA_DATA(attribute)))) {
      return true;
    }
    if (attribute->rta_type == RTA_MULTIPATH && anyHopLeadsOut(attribute, usable)) return true;
  }
  return false;
}

/// Adds a route's destination if that is all or half of the addresses.
void addRoute(nlmsghdr& message, const Links& usable, Halves& reached) {
  if (message.nlmsg_type != RTM_NEWROUTE) return;
  auto* route = static_cast<rtmsg*>(NLMSG_DATA(&message));
  if (route->rtm_dst_len > 1 || route->rtm_type != RTN_UNICAST || !isAlive(route->rtm_flags) ||
      !isUsable(message, usable)) {
    return;
  }
  bool isUpper = false;
  auto left = static_cast<long>(RTM_PAYLOAD(&message));
  rtattr* attribute = RTM_RTA(route);
  for (; RTA_OK(attribute, left); attribute = RTA_NEXT(attribute, left)) {
    if (attribute->rta_type != RTA_DST) continue;
    isUpper = *static_cast<unsigned char*>(RTA_DATA(attribute)) >= 0x80;
  }
  reached.lower = reached.lower || route->rtm_dst_len == 0 || !isUpper;
  reached.upper = reached.upper || route->rtm_dst_len == 0 || isUpper;
}

}  // namespace

std::optional<bool> hasWayOut() {
  // A socket of its own each time: events and the answer to a question never mix.
  const Descriptor socket = openNetlink(0, 0);
  if (!socket) return std::nullopt;
  (void)::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &kLongestAnswer, sizeof kLongestAnswer);
  Links usable;
  const auto takeLink = [&](nlmsghdr& message) { addLink(message, usable); };
  if (!dump(socket.get(), RTM_GETLINK, takeLink)) return std::nullopt;
  Halves v4;
  Halves v6;
  const auto takeRoute = [&](nlmsghdr& message) {
    const auto family = static_cast<rtmsg*>(NLMSG_DATA(&message))->rtm_family;
    addRoute(message, usable, family == AF_INET6 ? v6 : v4);
  };
  if (!dump(socket.get(), RTM_GETROUTE, takeRoute)) return std::nullopt;
  return (v4.lower && v4.upper) || (v6.lower && v6.upper);
}

Descriptor openRouteEvents() {
  constexpr unsigned kGroups =
      RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
  return openNetlink(kGroups, SOCK_NONBLOCK);
}

bool drainRouteEvents(int socket) {
  std::array<std::byte, 64> ignored;  // what does not fit is cut off
  bool isAny = false;
  while (true) {
    const auto count = retrying([&] { return ::recv(socket, ignored.data(), ignored.size(), 0); });
    // ENOBUFS: the kernel has dropped events; the tables show what they were about.
    if (count < 0 && errno != ENOBUFS) return isAny;
    isAny = true;
  }
}

}  // namespace ombrix::platform::detail
