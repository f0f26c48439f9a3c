#pragma once

#include "Tools/DevServer/HTTP/HTTPMessage.hpp"

namespace ombrix::devserver {

class ServerCore;

// Each function adds the routes of one topic; README.md describes them.

void addAccountRoutes(ServerCore& core);  // login, accounts, validation, rate limit
void addAdminRoutes(ServerCore& core);    // maintenance, tokens, gates, counters
void addDataRoutes(ServerCore& core);     // resorts, days, tracks
void addAnswerRoutes(ServerCore& core);   // echo, status, redirect, slow, gzip, bytes
void addFaultRoutes(ServerCore& core);    // everything that goes wrong on purpose
void addCacheRoutes(ServerCore& core);    // answers with cache headers and validators

/// Adds the header fields given by the query's items header=Name:value.
void addAskedHeaders(Response& response, const Request& request);

}  // namespace ombrix::devserver
