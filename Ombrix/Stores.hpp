#pragma once

/// \file
/// All of `Ombrix::Stores`: values kept in files and in memory, single and by key.

#include "Ombrix/Settings.hpp"
#include "OmbrixCore/Data/Stores/BackgroundWriter.hpp"
#include "OmbrixCore/Data/Stores/CachedItemStore.hpp"
#include "OmbrixCore/Data/Stores/CachedKeyedItemStore.hpp"
#include "OmbrixCore/Data/Stores/DataFileStore.hpp"
#include "OmbrixCore/Data/Stores/DataKeyedItemStore.hpp"
#include "OmbrixCore/Data/Stores/InMemoryKeyedStore.hpp"
#include "OmbrixCore/Data/Stores/ItemStore.hpp"
#include "OmbrixCore/Data/Stores/KeyedItemStore.hpp"
#include "OmbrixCore/Data/Stores/Persisted.hpp"
#include "OmbrixCore/Data/Stores/PlistFileStore.hpp"
#include "OmbrixCore/Data/Stores/PlistKeyedItemStore.hpp"
#include "OmbrixCore/Data/Stores/PresenterWrapper.hpp"
#include "OmbrixCore/Data/Stores/StoreLog.hpp"
#include "OmbrixCore/Data/Stores/String+FileName.hpp"
