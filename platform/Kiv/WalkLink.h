#pragma once
// The list of a collection's open walks, through which a collection tells them what happens to it.

namespace Kiv {

/** Base of a walk's state `Step`, a member of one list at most. `first` of a list is null when it
    is empty; it must not move while a walk is in it. */
template< class Step >
class WalkLink {
 public:
   WalkLink() = default;
   WalkLink( const WalkLink & ) = delete;
   WalkLink & operator=( const WalkLink & ) = delete;
   ~WalkLink() { unlink(); }

   void link( Step *& first ) {
      others_ = first;
// The compiler does not see that the destructor takes it out again.
#if defined __GNUC__ && !defined __clang__
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif
      first = static_cast< Step * >( this );
#if defined __GNUC__ && !defined __clang__
#pragma GCC diagnostic pop
#endif
      self_ = &first;
      if ( others_ ) {
         others_->self_ = &others_;
      }
   }
   void unlink() {
      if ( self_ ) {
         *self_ = others_;
         if ( others_ ) {
            others_->self_ = self_;
         }
         self_ = nullptr;
      }
   }
   Step * others() const {
      return others_;
   }

 private:
   Step * others_ = nullptr;
   Step ** self_ = nullptr;
};

} // namespace Kiv
