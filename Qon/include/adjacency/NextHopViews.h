#pragma once
// Ways to look at the vias of a collection: entry by entry, next hop by next hop, as bitmaps of the
// slots that a next hop has. "Next hop" means a distinct via; in order of its first entry.
//
//    collection.viaAndWeightIteratorConst()          { via, weight } of each entry
//    collection.nextHopIteratorConst()               each next hop
//    collection.nextHopAggregateWeightIteratorConst() { nextHop, sum of its weights }
//    collection.nextHopBitmapExternIteratorConst()   { nextHop, the slots that it has }
//    collection.viaAndWeightMapView().iteratorConst() { via, sum of its weights }
//
// Invariants
// 1. An iterator shows the list as it was when it was made, whatever becomes of the collection.
// 2. Going on or looking past the end raises Velto::RangeError, "<Iterator> is invalid".
// 3. An unset via is an entry, but no next hop.

#include "Qon/include/adjacency/ViaList.h"
#include "platform/Kiv/HybridSet.h"

namespace QonTypes {

/** Slots of an equal-cost group are numbered from 0; a list has at most 65535. */
struct ViaBitmapIndex {
   static constexpr U32 max() { return 65536; }
};

/** A set of slots. */
class ViaBitmap {
 public:
   ViaBitmap() = default;
   explicit ViaBitmap( const Velto::String & text );

   // Fatal for an index of max() or more.
   bool bit( U32 index ) const;
   void bitIs( U32 index );
   void bitDel( U32 index );
   /** How many are set. */
   U32 bits() const;
   /** The first that is set, from `index` on; max() if there is none. */
   U32 nextBit( U32 index ) const;

   bool operator==( const ViaBitmap & ) const = default;
   auto operator<=>( const ViaBitmap & ) const = default;
   bool isEq( const ViaBitmap & other ) const { return *this == other; }
   U64 hash() const;
   /** "{0, 5, 17}" */
   Velto::String stringValue() const;

 private:
   std::vector< U64 > words_; // the last one is not 0
};

} // namespace QonTypes

namespace Qon {

/** The sum of the weights of each next hop, in order of the first entry. */
class NextHopWeights {
 public:
   using Map = Kiv::DenseMap< NextHop, U64 >;

   NextHopWeights() = default;
   explicit NextHopWeights( const Velto::String & text );

   /** 0 for one that is not there. */
   U64 weight( const NextHop & nextHop ) const;
   U32 nextHops() const { return map_.size(); }
   const Map & map() const { return map_; }
   /** Returns whether the next hop was there. */
   bool weightAdd( const NextHop & nextHop, U64 weight );

   bool operator==( const NextHopWeights & other ) const { return ( *this <=> other ) == 0; }
   std::strong_ordering operator<=>( const NextHopWeights & other ) const;
   bool isEq( const NextHopWeights & other ) const { return *this == other; }
   U64 hash() const;
   Velto::String stringValue() const;

 private:
   Map map_;
};

/** Several next hops, for one call. */
class NextHopSetTransient {
 public:
   NextHopSetTransient() = default;
   NextHopSetTransient( std::initializer_list< NextHop > nextHops ) {
      for ( const auto & nextHop : nextHops ) {
         nextHopIs( nextHop );
      }
   }
   void nextHopIs( const NextHop & nextHop ) { set_.insert( nextHop ); }
   bool nextHopHas( const NextHop & nextHop ) const { return set_.has( nextHop ); }
   U32 nextHops() const { return set_.size(); }

 private:
   Kiv::HybridSet< NextHop > set_;
};

/** What the iterators have in common; Self has atEnd(), step() and current(). */
template< class Self >
class CheckedIterator {
 public:
   bool valid() const { return !self().atEnd(); }
   explicit operator bool() const { return valid(); }
   Self & operator++() {
      check();
      static_cast< Self & >( *this ).step();
      return static_cast< Self & >( *this );
   }
   const auto & operator*() const {
      check();
      return self().current();
   }
   const auto * operator->() const { return &**this; }

 private:
   const Self & self() const { return static_cast< const Self & >( *this ); }
   void check() const {
      if ( self().atEnd() ) {
         throw Velto::RangeError( Velto::String( Self::name ) + " is invalid" ); // fixed text
      }
   }
};

class ViaAndWeightIteratorConst : public CheckedIterator< ViaAndWeightIteratorConst > {
 public:
   static constexpr const char * name = "ViaAndWeightIteratorConst"; // fixed text
   explicit ViaAndWeightIteratorConst( PlatformApi::ViaList::Snapshot list )
       : list_( std::move( list ) ) {}
   const PlatformApi::ViaList * list() const { return list_.ptr(); }
   /** Of the entry that it shows. */
   U32 index() const { return at_; }

 private:
   friend class CheckedIterator< ViaAndWeightIteratorConst >;
   bool atEnd() const { return at_ >= list_->viaAndWeights(); }
   void step() { ++at_; }
   const PlatformApi::ViaAndWeight & current() const { return list_->vias[at_]; }

   PlatformApi::ViaList::Snapshot list_;
   U32 at_ = 0;
};

class NextHopIteratorConst : public CheckedIterator< NextHopIteratorConst > {
 public:
   static constexpr const char * name = "NextHopIteratorConst"; // fixed text
   explicit NextHopIteratorConst( PlatformApi::ViaList::Snapshot list );

 private:
   friend class CheckedIterator< NextHopIteratorConst >;
   bool atEnd() const { return at_ >= list_->viaAndWeights(); }
   void step();
   void skip();
   const NextHop & current() const { return list_->vias[at_].via(); }

   PlatformApi::ViaList::Snapshot list_;
   Kiv::DenseMap< NextHop, Kiv::Nothing > seen_;
   U32 at_ = 0;
};

/** The iterators over what is put together of all entries of a next hop. */
template< class Self, class Entry >
class GatheredIterator : public CheckedIterator< Self > {
 public:
   explicit GatheredIterator( std::vector< Entry > entries )
       : entries_( std::make_shared< const std::vector< Entry > >( std::move( entries ) ) ) {}

 private:
   friend class CheckedIterator< Self >;
   bool atEnd() const { return at_ >= entries_->size(); }
   void step() { ++at_; }
   const Entry & current() const { return ( *entries_ )[at_]; }

   std::shared_ptr< const std::vector< Entry > > entries_;
   std::size_t at_ = 0;
};

struct NextHopWeightEntry {
   NextHop nextHop;
   U64 weight;
};
class NextHopAggregateWeightIteratorConst
    : public GatheredIterator< NextHopAggregateWeightIteratorConst, NextHopWeightEntry > {
 public:
   static constexpr const char * name = "NextHopAggregateWeightIteratorConst"; // fixed text
   explicit NextHopAggregateWeightIteratorConst( const NextHopWeights & weights );
};

struct NextHopBitmapEntry {
   NextHop nextHop;
   QonTypes::ViaBitmap bitmap;
};
class NextHopBitmapExternIteratorConst
    : public GatheredIterator< NextHopBitmapExternIteratorConst, NextHopBitmapEntry > {
 public:
   static constexpr const char * name = "NextHopBitmapExternIteratorConst"; // fixed text
   explicit NextHopBitmapExternIteratorConst( const PlatformApi::ViaList & list );
};

struct ViaMapEntry {
   NextHop via;
   U64 weight;
};
class ViaAndWeightMapViewIteratorConst
    : public GatheredIterator< ViaAndWeightMapViewIteratorConst, ViaMapEntry > {
 public:
   static constexpr const char * name = "ViaAndWeightMapViewIteratorConst"; // fixed text
   explicit ViaAndWeightMapViewIteratorConst( const NextHopWeights & weights );
};

/** The vias of a collection by via, with the sum of the weights of each. */
class ViaAndWeightMapView {
 public:
   explicit ViaAndWeightMapView( NextHopWeights weights ) : weights_( std::move( weights ) ) {}
   /** 0 for one that is not there. */
   U64 weight( const NextHop & via ) const { return weights_.weight( via ); }
   U32 vias() const { return weights_.nextHops(); }
   ViaAndWeightMapViewIteratorConst iteratorConst() const {
      return ViaAndWeightMapViewIteratorConst( weights_ );
   }

 private:
   NextHopWeights weights_;
};

} // namespace Qon
