#pragma once
// Snapshots of the state database: a JSON object of path and value, in order.
//
//    { "interface/status/eth/phy/intfStatus[Ethernet0]": null,            the entity is there
//      "interface/status/eth/phy/intfStatus[Ethernet0]/linkUp": "True" }  the value is this
//
// What takeState() gives, parseState() takes. Texts, numbers and truth values are read alike.

#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "agent/base/Json.h"
#include "platform/Orvane/EntityManager.h"

namespace QonAgent {

using Velto::String;

/** Everything below `path`. Raises Velto::RangeError for a path that leads nowhere. */
Json takeState( const Orvane::EntityManager & entities, const String & path );

/** A snapshot's entries, in order. Raises Velto::RangeError for a text that is none. */
using State = std::vector< std::pair< String, Json > >;
State parseState( const String & text );

/** Applies a snapshot, entry by entry. Raises Velto::RangeError "PATH: what" at the first that does
    not fit. */
void applyState( Orvane::EntityManager & entities, const State & state );

/** The same with a file; errors begin with its name. */
void applyStateFile( Orvane::EntityManager & entities, const String & file );
/** The same with the content of the file. */
void applyStateText( Orvane::EntityManager & entities, const String & file, const String & text );

/** The text by which the generic attribute interface knows a JSON value: "True", "42", a text.
    Raises Velto::RangeError for arrays and objects. */
String textOfJson( const Json & value );

/** A JSON text, or Velto::RangeError "LINE:COLUMN: why it is none". */
Json parseJson( const String & text );

} // namespace QonAgent
