// Widgets: what the file is for.
//
// A second paragraph with <angle brackets>, an @ sign, a back\slash and Type<T>::Get().
#ifndef WIDGET_H_
#define WIDGET_H_

// Section heading: documents nothing.

// Integer parsing. The family heading covers every declaration that follows.
int ParseA(const char* text);
int ParseW(const wchar_t* text);

// Report says what it does; the declarations after it are not its family.
void Report();
void Purge();

// Widget is a thing with `code <spans>` kept as they are.
class Widget {
 public:
  // Get returns the value.
  int Get() const {
    // an implementation note stays a plain comment
    return value_;
  }
  int value_;  // the value, 0 when made
};

// WIDGET_MIN and WIDGET_MAX bound a value.
#define WIDGET_MIN 0
#define WIDGET_MAX 9

#endif  // WIDGET_H_
