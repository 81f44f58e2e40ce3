#include "agent/base/Fields.h"

#include <algorithm>
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

namespace {

/** What a field of each type is, in words, and whether a value is that. */
template< class T >
constexpr const char * wordFor = "";
template<>
constexpr const char * wordFor< bool > = "true or false";
template<>
constexpr const char * wordFor< U32 > = "a whole number from 0 to 4294967295";
template<>
constexpr const char * wordFor< double > = "a number";
template<>
constexpr const char * wordFor< String > = "a text";
template<>
constexpr const char * wordFor< std::vector< String > > = "a list of texts";

bool
isA( const Json & value, bool * ) {
   return value.is_boolean();
}

/** JSON converts whatever looks like a number, and cuts off what is too much. */
bool
isA( const Json & value, U32 * ) {
   return value.is_number_integer() && ( value.is_number_unsigned() || value.get< S64 >() >= 0 ) &&
          value.get< U64 >() <= U32( -1 );
}

bool
isA( const Json & value, double * ) {
   return value.is_number();
}

bool
isA( const Json & value, String * ) {
   return value.is_string();
}

bool
isA( const Json & value, std::vector< String > * ) {
   return value.is_array() &&
          std::all_of( value.begin(), value.end(), []( auto & one ) { return one.is_string(); } );
}

bool
isA( const Json &, Json * ) {
   return true;
}

} // namespace

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
   if ( !isA( *found, static_cast< T * >( nullptr ) ) ) {
      throw Velto::RangeError( String( "field '" ) + field + "': expected " + wordFor< T > +
                               ", found " +
                               found->dump( -1, ' ', false, Json::error_handler_t::replace ) );
   }
   return found->template get< T >();
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
