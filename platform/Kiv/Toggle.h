#pragma once
// Feature toggles: files of switches that an image or an operator sets before an agent starts.
//
//    <directory>/Qon.json: { "QonLeanFaEcmpStickiness": true, ... } -> Kiv::toggle( "Qon.json", name )
//
// Reads the file at each call: who asks keeps the answer for the life of the process.

#include "platform/Velto/Types.h"

namespace Kiv {

/** Where toggle files are; "/etc/toggles" unless it was set. */
void toggleDirectoryIs( const Velto::String & directory );

/** Whether `name` is true in the file, which is one JSON object. False without the file, if it is no
    such thing as a whole, and if the name is missing or anything else than true. */
bool toggle( const Velto::String & file, const Velto::String & name );

} // namespace Kiv
