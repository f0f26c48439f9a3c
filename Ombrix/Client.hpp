#pragma once

/// \file
/// All of `Ombrix::Client`: requests to the web service.

#include "Ombrix/Settings.hpp"
#include "OmbrixCore/Networking/APIEndpoint.hpp"
#include "OmbrixCore/Networking/CompletionSubscriptions.hpp"
#include "OmbrixCore/Networking/ObservableFlag.hpp"
#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"
#include "OmbrixCore/Networking/OmbrixTaskPooler.hpp"
#include "OmbrixCore/Networking/Policies/RequestFlows.hpp"
#include "OmbrixCore/Networking/Policies/RequestPolicies.hpp"
#include "OmbrixCore/Networking/Policies/RetryPolicy.hpp"
#include "OmbrixCore/Networking/RemoteObjectState.hpp"
#include "OmbrixCore/Networking/Requests/HTTPAnswer.hpp"
#include "OmbrixCore/Networking/Requests/HTTPBodySink.hpp"
#include "OmbrixCore/Networking/Requests/HTTPContent.hpp"
#include "OmbrixCore/Networking/Requests/HTTPLines.hpp"
#include "OmbrixCore/Networking/Requests/HTTPPayload.hpp"
#include "OmbrixCore/Networking/Requests/HTTPRequestOperationPublisher.hpp"
#include "OmbrixCore/Networking/Requests/HttpRequestOperation.hpp"
#include "OmbrixCore/Networking/Requests/OmbrixAPIHttpRequestOperation.hpp"
#include "OmbrixCore/Networking/Requests/RequestOptions.hpp"
#include "OmbrixCore/Networking/Requests/ServerRequests.hpp"
#include "OmbrixCore/Networking/Requests/URL+Query.hpp"
#include "OmbrixCore/Networking/Requests/UploadTaskPublisher.hpp"
#include "OmbrixCore/Networking/ServerConfiguration.hpp"
#include "OmbrixCore/Networking/ServiceConditions.hpp"
#include "OmbrixPlatform/Network/HTTPHeaders.hpp"
#include "OmbrixPlatform/Network/URLError.hpp"
#include "OmbrixPlatform/Network/URLRequest.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"
#include "OmbrixPlatform/Network/URLSessionConfiguration.hpp"
#include "OmbrixPlatform/Network/URLSessionDelegate.hpp"
#include "OmbrixPlatform/Network/URLSessionTask.hpp"

namespace ombrix {

using platform::HTTPHeaders;
using platform::HTTPURLResponse;
using platform::URLError;
using platform::URLRequest;
using platform::URLSession;
using platform::URLSessionCompletionHandler;
using platform::URLSessionConfiguration;
using platform::URLSessionDataTask;
using platform::URLSessionDelegate;
using platform::URLSessionFactory;
using platform::URLSessionUploadTask;

}  // namespace ombrix
