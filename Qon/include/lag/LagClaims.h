#pragma once
// Which aggregates list a port, in the order in which they began to.
//
// Invariants
// 1. A port is wanted by the aggregate that listed it last; when that one drops it, by the one
//    before. Listing it again changes nothing.
// 2. Every call costs as much as there are aggregates that list this one port.

#include "Qon/include/framework/QonPortLists.h"
#include "platform/Kiv/DenseMap.h"

namespace Qon {

class LagClaims {
 public:
   using Map = Kiv::DenseMap< Ulnet::IntfId, QonPortList >;

   void claim( Ulnet::IntfId port, Ulnet::IntfId lag ) {
      lags_.emplace( port ).first->portIs( lag );
   }
   void unclaim( Ulnet::IntfId port, Ulnet::IntfId lag ) {
      if ( auto lags = lags_.find( port ) ) {
         lags->portDel( lag );
         if ( lags->ports() == 0 ) {
            lags_.erase( port );
         }
      }
   }
   /** The last one that lists `port` among those that `counts( lag )`; null is none. */
   template< class Counts >
   Ulnet::IntfId owner( Ulnet::IntfId port, Counts && counts ) const {
      Ulnet::IntfId owner;
      if ( auto lags = lags_.find( port ) ) {
         for ( Ulnet::IntfId lag : *lags ) {
            owner = counts( lag ) ? lag : owner;
         }
      }
      return owner;
   }
   Ulnet::IntfId owner( Ulnet::IntfId port ) const {
      return owner( port, []( Ulnet::IntfId ) { return true; } );
   }
   /** Every port that is listed, with the aggregates that list it. */
   const Map & all() const { return lags_; }

 private:
   Map lags_;
};

} // namespace Qon
