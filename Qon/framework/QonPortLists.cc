#include "Qon/include/framework/QonPortLists.h"

namespace Qon {

namespace {

Ulnet::IntfId
keyOf( Ulnet::IntfId intf ) {
   return intf;
}

Ulnet::IntfId
keyOf( const QonLagPortList::Entries::value_type & entry ) {
   return entry.first;
}

/** Where `intf` stands, or the number of entries. Groups are small and kept in one block, so a
    walk is as fast as an index. */
template< class Entries >
U32
placeOf( const Entries & entries, Ulnet::IntfId intf ) {
   U32 place = 0;
   while ( place < entries.size() && keyOf( entries[place] ) != intf ) {
      ++place;
   }
   return place;
}

template< class Entries >
bool
holds( const Entries & entries, Ulnet::IntfId intf ) {
   return placeOf( entries, intf ) < entries.size();
}

template< class Entries >
void
eraseEntry( Entries & entries, Ulnet::IntfId intf ) {
   U32 place = placeOf( entries, intf );
   if ( place < entries.size() ) {
      entries.erase( entries.begin() + place );
   }
}

template< class Entries >
bool
sameEntries( const Entries & some, const Entries & others ) {
   if ( some.size() != others.size() ) {
      return false;
   }
   for ( const auto & entry : some ) {
      U32 place = placeOf( others, keyOf( entry ) );
      if ( place == others.size() || !( others[place] == entry ) ) {
         return false;
      }
   }
   return true;
}

} // namespace

QonPortList::QonPortList( const Velto::String & ) {
   throw Velto::RangeError( "No String constructor for QonPortList - has collection" );
}

bool
QonPortList::portHas( Ulnet::IntfId intf ) const {
   return holds( entries_, intf );
}

void
QonPortList::portIs( Ulnet::IntfId intf ) {
   if ( !portHas( intf ) ) {
      entries_.push_back( intf );
   }
}

void
QonPortList::portDel( Ulnet::IntfId intf ) {
   eraseEntry( entries_, intf );
}

bool
QonPortList::operator==( const QonPortList & other ) const {
   return sameEntries( entries_, other.entries_ );
}

U64
QonPortList::hash() const {
   U64 sum = 0; // the same in every order
   for ( Ulnet::IntfId intf : entries_ ) {
      sum += Kiv::hashJoin( 0, intf.hash() );
   }
   return sum;
}

Velto::String
QonPortList::stringValue() const {
   Kiv::ValueWriter w;
   for ( Ulnet::IntfId intf : entries_ ) {
      w.element( intf );
   }
   return w.text();
}

QonLagPortList::QonLagPortList( const Velto::String & ) {
   throw Velto::RangeError( "No String constructor for QonLagPortList - has collection" );
}

bool
QonLagPortList::portHas( Ulnet::IntfId intf ) const {
   return holds( entries_, intf );
}

QonLagPort
QonLagPortList::port( Ulnet::IntfId intf ) const {
   U32 place = placeOf( entries_, intf );
   return place < entries_.size() ? entries_[place].second : QonLagPort();
}

void
QonLagPortList::portIs( Ulnet::IntfId intf, const QonLagPort & port ) {
   U32 place = placeOf( entries_, intf );
   if ( place < entries_.size() ) {
      entries_[place].second = port;
   } else {
      entries_.emplace_back( intf, port );
   }
}

void
QonLagPortList::portDel( Ulnet::IntfId intf ) {
   eraseEntry( entries_, intf );
}

bool
QonLagPortList::operator==( const QonLagPortList & other ) const {
   return sameEntries( entries_, other.entries_ );
}

U64
QonLagPortList::hash() const {
   U64 sum = 0; // the same in every order
   for ( const auto & entry : entries_ ) {
      sum += Kiv::hashJoin( entry.first.hash(), entry.second.hash() );
   }
   return sum;
}

Velto::String
QonLagPortList::stringValue() const {
   Kiv::ValueWriter w;
   for ( const auto & entry : entries_ ) {
      w.entry( entry.first, entry.second );
   }
   return w.text();
}

} // namespace Qon

template<>
Qon::QonPortList
Kiv::fromText( const Velto::String & text ) {
   Qon::QonPortList list;
   if ( text.size() < 2 || text.front() != '{' || text.back() != '}' ) {
      textRefused( "ports such as {Ethernet1, Ethernet2}", text );
   }
   for ( auto & name : split( text.substr( 1, text.size() - 2 ), ',' ) ) {
      const auto begin = name.find_first_not_of( ' ' );
      if ( begin != Velto::String::npos ) {
         list.portIs( Ulnet::IntfId( name.substr( begin ) ) );
      }
   }
   return list;
}

template<>
Qon::QonLagPortList
Kiv::fromText( const Velto::String & text ) {
   Qon::QonLagPortList list;
   for ( ValueReader reader( "Qon::QonLagPortList", text ); reader.next(); ) {
      list.portIs( Ulnet::IntfId( reader.name() ), fromText< Qon::QonLagPort >( reader.value() ) );
   }
   return list;
}
