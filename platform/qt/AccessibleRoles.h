// What assistive technology takes the window and its own kinds of control for, and the numbers that it reads
// and sets, where the toolkit cannot know: they are those that a person sees.
#pragma once

namespace vexil {

// For the life of the program; once or more.
void InstallAccessibleRoles();

}  // namespace vexil
