#include "agent/base/Fields.h"

#include <nlohmann/json.hpp>
#include <vector>

#include "platform/Velto/Assert.h"

namespace QonAgent {

bool
hasField( const Json & line, const char * field ) {
   if ( FieldsAsked::noting() ) {
      FieldsAsked::note( field );
   }
   return line.contains( field );
}

template< class T >
T
fieldOf( const Json & line, const char * field ) {
   if ( FieldsAsked::noting() ) {
      FieldsAsked::note( field );
   }
   auto found = line.find( field );
   if ( found == line.end() ) {
      throw Velto::RangeError( String( "field '" ) + field + "' is missing" );
   }
   try {
      return found->template get< T >();
   } catch ( const nlohmann::json::exception & ) {
      throw Velto::RangeError( String( "field '" ) + field + "' cannot be " + found->dump() );
   }
}

FieldsAsked::FieldsAsked() {
   VELTO_ASSERT( !current_ );
   current_ = this;
}

FieldsAsked::~FieldsAsked() {
   current_ = nullptr;
}

void
FieldsAsked::note( const String & field ) {
   VELTO_ASSERT( current_ );
   current_->names_.insert( field );
}

// Here alone, so that whoever reads a field needs nothing of what JSON is made of.
template bool fieldOf< bool >( const Json &, const char * );
template U32 fieldOf< U32 >( const Json &, const char * );
template double fieldOf< double >( const Json &, const char * );
template String fieldOf< String >( const Json &, const char * );
template std::vector< String > fieldOf< std::vector< String > >( const Json &, const char * );
template Json fieldOf< Json >( const Json &, const char * );

} // namespace QonAgent
