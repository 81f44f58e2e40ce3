#include "simulation/Event.h"

#include <sstream>

#include "platform/Velto/Assert.h"

namespace Sim {

U32
featureKind( std::string_view name ) {
   auto kinds = featureKinds();
   U32 i = 0;
   while ( i < kinds.size() && kinds[i].name != name ) {
      ++i;
   }
   return i;
}

String
Event::text() const {
   String line = String( featureKinds()[feature].name ) + " " + kind().name;
   for ( U32 i = 0; i < mostArguments && kind().ranges[i] != Range::none; ++i ) {
      line += " " + std::to_string( args[i] );
   }
   return line;
}

Event
Event::parsed( const String & line ) {
   std::istringstream in( line );
   String feature, operation;
   in >> feature >> operation;
   Event event;
   event.feature = U8( featureKind( feature ) );
   if ( event.feature == featureKinds().size() ) {
      throw Velto::RangeError( "no feature \"" + feature + "\" in: " + line );
   }
   auto operations = featureKinds()[event.feature].operations;
   while ( event.operation < operations.size() && operations[event.operation].name != operation ) {
      ++event.operation;
   }
   if ( event.operation == operations.size() ) {
      throw Velto::RangeError( "no operation \"" + operation + "\" in: " + line );
   }
   for ( U32 i = 0; i < mostArguments && event.kind().ranges[i] != Range::none; ++i ) {
      if ( !( in >> event.args[i] ) ) {
         throw Velto::RangeError( "too few numbers in: " + line );
      }
   }
   return event;
}

} // namespace Sim
