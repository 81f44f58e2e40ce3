#pragma once
// The members of link aggregation groups.
//
// 1. Both lists keep the order in which ports were added; a port that stays keeps its place.
// 2. Two lists are equal when they hold the same ports (and flags), in whatever order.
// 3. Adding what is there and removing what is not there change nothing.

#include <utility>
#include <vector>

#include "platform/Kiv/Text.h"
#include "platform/types/IntfId.h"

namespace Qon {

/** What a member of a link aggregation group may do. */
class QonLagPort {
   bool collecting_ = false;
   bool distributing_ = false;
   KIV_VALUE( Qon, QonLagPort, collecting, distributing )
};

/** A set of ports. */
class QonPortList {
 public:
   using Entries = std::vector< Ulnet::IntfId >;

   QonPortList() = default;
   /** Always raises Velto::RangeError: a collection has no text to be made from. */
   explicit QonPortList( const Velto::String & text );

   bool portHas( Ulnet::IntfId intf ) const;
   void portIs( Ulnet::IntfId intf );
   void portDel( Ulnet::IntfId intf );
   void portDelAll() { entries_.clear(); }
   U32 ports() const { return U32( entries_.size() ); }
   Entries::const_iterator begin() const { return entries_.begin(); }
   Entries::const_iterator end() const { return entries_.end(); }

   bool operator==( const QonPortList & other ) const;
   U64 hash() const;
   Velto::String stringValue() const;

 private:
   Entries entries_;
};

/** A map from member port to what it may do. */
class QonLagPortList {
 public:
   using Entries = std::vector< std::pair< Ulnet::IntfId, QonLagPort > >;

   QonLagPortList() = default;
   /** Always raises Velto::RangeError: a collection has no text to be made from. */
   explicit QonLagPortList( const Velto::String & text );

   bool portHas( Ulnet::IntfId intf ) const;
   /** The flags of `intf`; both false where it is no member. */
   QonLagPort port( Ulnet::IntfId intf ) const;
   void portIs( Ulnet::IntfId intf, const QonLagPort & port );
   void portDel( Ulnet::IntfId intf );
   void portDelAll() { entries_.clear(); }
   U32 ports() const { return U32( entries_.size() ); }
   Entries::const_iterator begin() const { return entries_.begin(); }
   Entries::const_iterator end() const { return entries_.end(); }

   bool operator==( const QonLagPortList & other ) const;
   U64 hash() const;
   Velto::String stringValue() const;

 private:
   Entries entries_;
};

} // namespace Qon

// Of their texts as stringValue() gives them: a snapshot of the state database is read again, though
// nobody makes such a list of a text.
template<>
Qon::QonPortList Kiv::fromText< Qon::QonPortList >( const Velto::String & text );
template<>
Qon::QonLagPortList Kiv::fromText< Qon::QonLagPortList >( const Velto::String & text );
