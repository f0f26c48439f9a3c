#pragma once

/// \file
/// The platform's types that the product's functions take and give, by shorter names. A program
/// that includes the headers of this folder finds everything in `ombrix`: `ombrix::URL` is
/// `ombrix::platform::URL`, which goes on to be its name. `FileManager` alone is not among them:
/// `ombrix::FileManager` is the product's own.

#include "OmbrixPlatform/Bundles/Bundle.hpp"
#include "OmbrixPlatform/Coding/CodingError.hpp"
#include "OmbrixPlatform/Coding/CodingFields.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/JSONDecoder.hpp"
#include "OmbrixPlatform/Coding/JSONEncoder.hpp"
#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Coding/PropertyListDecoder.hpp"
#include "OmbrixPlatform/Coding/PropertyListEncoder.hpp"
#include "OmbrixPlatform/Concurrency/Async.hpp"
#include "OmbrixPlatform/Concurrency/AsyncStream.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Concurrency/NSOperationQueue.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"
#include "OmbrixPlatform/Concurrency/TaskContext.hpp"
#include "OmbrixPlatform/Csv/CSVError.hpp"
#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Files/FileError.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"
#include "OmbrixPlatform/Files/OutputStream.hpp"
#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Logging/DDLogger.hpp"
#include "OmbrixPlatform/Measure/Measurement.hpp"
#include "OmbrixPlatform/Measure/NSDateComponents.hpp"
#include "OmbrixPlatform/Measure/NSUnit.hpp"
#include "OmbrixPlatform/Observation/KeyValueObserving.hpp"
#include "OmbrixPlatform/Observation/ObservationToken.hpp"
#include "OmbrixPlatform/Publishers/AnyCancellable.hpp"
#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"
#include "OmbrixPlatform/Publishers/Subject.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Text/DateFormatter.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"
#include "OmbrixPlatform/Text/NSAttributedString.hpp"
#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Date.hpp"
#include "OmbrixPlatform/Values/Error.hpp"
#include "OmbrixPlatform/Values/UUID.hpp"

namespace ombrix {

using platform::AnyCancellable;
using platform::AnyMeasurement;
using platform::AnyPublisher;
using platform::Async;
using platform::AsyncStream;
using platform::Bundle;
using platform::bytesOf;
using platform::CancellationError;
using platform::codingFields;
using platform::CSVError;
using platform::CurrentValueSubject;
using platform::Data;
using platform::dataFrom;
using platform::DataView;
using platform::Date;
using platform::DateFormatter;
using platform::dateSince1970;
using platform::DDLogFlag;
using platform::DDLogger;
using platform::DDLogMessage;
using platform::DecodingError;
using platform::DispatchQueue;
using platform::EncodingError;
using platform::Error;
using platform::Executor;
using platform::field;
using platform::FileError;
using platform::InputStream;
using platform::JSON;
using platform::JSONDecoder;
using platform::JSONEncoder;
using platform::KeyValueObservingOptions;
using platform::Locale;
using platform::LocaleService;
using platform::Measurement;
using platform::NSAttributedString;
using platform::NSCalendarUnit;
using platform::NSOperationQueue;
using platform::NSUbiquitousKeyValueStore;
using platform::NSUnitEnergy;
using platform::NSUnitFrequency;
using platform::NSUnitLength;
using platform::NSUnitMass;
using platform::NSUnitSpeed;
using platform::NSUnitTemperature;
using platform::ObservationToken;
using platform::OutputStream;
using platform::PassthroughSubject;
using platform::PropertyList;
using platform::PropertyListDecoder;
using platform::PropertyListEncoder;
using platform::Services;
using platform::services;
using platform::setMainBundleIdentity;
using platform::Task;
using platform::textOf;
using platform::TimeInterval;
using platform::timeIntervalSince1970;
using platform::URL;
using platform::UserDefaults;
using platform::UUID;

}  // namespace ombrix
