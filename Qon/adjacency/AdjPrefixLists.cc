#include "Qon/include/adjacency/AdjPrefixLists.h"

namespace Qon {

AdjPrefixLists::~AdjPrefixLists() {
   destroy();
}

void
AdjPrefixLists::listDel( AdjPrefixListBaseKey key ) {
   const U16 kept = spare();
   if ( !one() ) {
      several_.lists.erase( key );
   } else if ( base_.key() == key ) {
      destroy();
      new ( &several_ ) Several;
   }
   spareIs( kept );
}

/** Makes the list of `key`, which is not there yet. */
AdjPrefixListBase *
AdjPrefixLists::listMake( AdjPrefixListBaseKey key ) {
   const U16 kept = spare();
   AdjPrefixListBase * made = &base_;
   if ( one() ) {
      const AdjPrefixListBaseKey first = base_.key();
      AdjPrefixLists only( std::move( *this ) );
      several_.lists.emplace( first, std::move( only ) );
   } else if ( several_.lists.empty() ) {
      destroy();
      oneIs( key );
   }
   if ( !one() ) {
      made = &several_.lists.emplace( key, AdjPrefixLists( key ) ).first->base_;
   }
   spareIs( kept );
   return made;
}

void
AdjPrefixLists::oneIs( AdjPrefixListBaseKey key ) {
   if ( key.family() == Ulnet::AddressFamily::ipv4 ) {
      new ( &v4_ ) VrfPrefixList( key.vrfId() );
   } else {
      new ( &v6_ ) VrfPrefix6List( key.vrfId() );
   }
}

void
AdjPrefixLists::take( AdjPrefixLists & o ) {
   if ( !o.one() ) {
      new ( &several_ ) Several( std::move( o.several_ ) );
      return;
   }
   if ( o.base_.family() == Ulnet::AddressFamily::ipv4 ) {
      new ( &v4_ ) VrfPrefixList( std::move( o.v4_ ) );
   } else {
      new ( &v6_ ) VrfPrefix6List( std::move( o.v6_ ) );
   }
   o.destroy();
   new ( &o.several_ ) Several;
}

void
AdjPrefixLists::destroy() {
   if ( !one() ) {
      several_.~Several();
   } else if ( base_.family() == Ulnet::AddressFamily::ipv4 ) {
      v4_.~VrfPrefixListOf();
   } else {
      v6_.~VrfPrefixListOf();
   }
}

AdjPrefixLists::Walk::Walk( const AdjPrefixLists & lists ) : lists_( &lists ) {
   if ( lists.one() ) {
      one_ = lists.base_.key();
   } else {
      walk_.emplace( lists.several_.lists );
   }
}

} // namespace Qon
