#pragma once
// The prefix lists of one forwarding equivalence class by VRF and address family: nearly always one,
// which stands in the object.
//
//    one list                            none, or several
//    VrfPrefixList or VrfPrefix6List     Kiv::DenseMap by key, until all are gone
//
// Invariants
// 1. What stands in the object tells by its key which of the three it is; the map's tag is 0.
// 2. A list stays where it is until another one comes or goes.
//
// Ownership: plain; it owns its lists.

#include "Qon/include/adjacency/VrfPrefixList.h"

namespace Qon {

class AdjPrefixLists {
   using Many = Kiv::DenseMap< AdjPrefixListBaseKey, AdjPrefixLists >; // each with one list

 public:
   class Walk;

   AdjPrefixLists() : several_() {}
   AdjPrefixLists( AdjPrefixLists && o ) noexcept { take( o ); }
   AdjPrefixLists & operator=( AdjPrefixLists && ) = delete;
   ~AdjPrefixLists();

   U32 size() const { return one() ? 1 : several_.lists.size(); }
   /** The list of `key`, or null. */
   const AdjPrefixListBase * find( AdjPrefixListBaseKey key ) const {
      if ( base_.key() == key ) {
         return &base_;
      }
      const AdjPrefixLists * held = one() ? nullptr : several_.lists.find( key );
      return held ? &held->base_ : nullptr;
   }
   /** The list of `key`, whose family is that of List, or null. */
   template< class List >
   List * findAs( AdjPrefixListBaseKey key ) {
      return static_cast< List * >( const_cast< AdjPrefixListBase * >( find( key ) ) );
   }
   /** The list of that VRF, which is made if there is none. */
   template< class List >
   List & listIs( AdjPrefixListBaseKey key ) {
      List * held = findAs< List >( key );
      return held ? *held : *static_cast< List * >( listMake( key ) );
   }
   void listDel( AdjPrefixListBaseKey key );
   Walk iterator() const;

   /** A number for the owner's use; kept here because the room is. */
   U16 spare() const { return base_.spare_; }
   void spareIs( U16 v ) { base_.spare_ = v; }

 private:
   struct Several : AdjPrefixListBase {
      Several() : AdjPrefixListBase( {}, {} ) {}
      Several( Several && o ) noexcept = default;
      Many lists;
   };

   explicit AdjPrefixLists( AdjPrefixListBaseKey key ) { oneIs( key ); }
   bool one() const { return base_.key().familyTag() != 0; }
   AdjPrefixListBase * listMake( AdjPrefixListBaseKey key );
   void oneIs( AdjPrefixListBaseKey key );
   /** Takes over what `o` has, which has none then; there is none here yet. */
   void take( AdjPrefixLists & o );
   /** Ends what stands in the object. */
   void destroy();

   union {
      AdjPrefixListBase base_; // of whichever it is
      VrfPrefixList v4_;
      VrfPrefix6List v6_;
      Several several_;
   };
};

/** `for ( auto i = lists.iterator(); i; ++i ) i.value()`. Stays valid as a walk of a Kiv::DenseMap while
    lists come and go, but the lists must outlive it. */
class AdjPrefixLists::Walk {
 public:
   explicit Walk( const AdjPrefixLists & lists );
   explicit operator bool() const { return one_ || ( walk_ && *walk_ ); }
   Walk & operator++() {
      one_ ? one_.reset() : void( ++*walk_ );
      return *this;
   }
   /** Whether the current one is still there. */
   bool alive() const { return one_ ? lists_->find( *one_ ) != nullptr : walk_->alive(); }
   AdjPrefixListBaseKey key() const { return one_ ? *one_ : walk_->key(); }
   const AdjPrefixListBase & value() const {
      return one_ ? *lists_->find( *one_ ) : walk_->value().base_;
   }

 private:
   const AdjPrefixLists * lists_;
   std::optional< AdjPrefixListBaseKey > one_;
   std::optional< Many::ConstWalk > walk_;
};

inline AdjPrefixLists::Walk
AdjPrefixLists::iterator() const {
   return Walk( *this );
}

} // namespace Qon
