// What assistive technology takes the window and its own kinds of control for, where the toolkit cannot know.
#pragma once

namespace vexil {

// For the life of the program; once or more.
void InstallAccessibleRoles();

}  // namespace vexil
